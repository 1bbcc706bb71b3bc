// The image resizer used for thumbnails, compiled once from the system's stb headers
// (Debian package libstb-dev), with warnings off for this file only.
#define STB_IMAGE_RESIZE_IMPLEMENTATION
#include <stb/stb_image_resize.h>
