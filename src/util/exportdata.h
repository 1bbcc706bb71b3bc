// Module data the host may read: a variable marked KV_DATA is a dynamic symbol of the plug-in
// (src/Kelvane4.map names the ones that stay visible; everything else is hidden).
#pragma once

#if defined(_WIN32)
#define KV_DATA __declspec(dllexport)
#else
#define KV_DATA __attribute__((visibility("default")))
#endif
