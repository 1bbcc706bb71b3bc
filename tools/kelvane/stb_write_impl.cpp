// stb's PNG writer, compiled once from the system's stb headers (Debian package libstb-dev),
// with warnings off for this file only.
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_image_write.h>
