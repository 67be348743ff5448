// Android asset access, desktop stand-in: the NDK's declarations, plus functions to
// create and destroy a manager over a directory (the desktop has no APK).
//
// An AAssetManager names a root directory; asset names are paths relative to it and
// may not leave it (absolute names and ".." components are refused). An AAsset holds
// the asset's bytes read whole at open. A manager may be used from several threads; an
// asset from one thread at a time, like on the device.
#pragma once

#include <stddef.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct AAssetManager AAssetManager;
typedef struct AAsset AAsset;

enum {
    AASSET_MODE_UNKNOWN = 0,
    AASSET_MODE_RANDOM = 1,
    AASSET_MODE_STREAMING = 2,
    AASSET_MODE_BUFFER = 3,
};

// Opens the asset filename (relative to the manager's root); null when it does not
// exist, is not a regular file, escapes the root or mgr is null. Any mode is accepted.
AAsset* AAssetManager_open(AAssetManager* mgr, const char* filename, int mode);
// Reads up to count bytes at the current position; the count read, 0 at the end, -1 on
// a null argument.
int AAsset_read(AAsset* asset, void* buf, size_t count);
// Total length of the asset in bytes.
off_t AAsset_getLength(AAsset* asset);
// Length as a 64-bit value.
off64_t AAsset_getLength64(AAsset* asset);
// Bytes not yet read.
off_t AAsset_getRemainingLength(AAsset* asset);
// Closes the asset (null is ignored).
void AAsset_close(AAsset* asset);

// Desktop only: a manager over the directory root (null when root is null or not a
// directory). Release it with AAssetManager_delete.
AAssetManager* AAssetManager_fromDirectory(const char* root);
void AAssetManager_delete(AAssetManager* mgr);

#ifdef __cplusplus
}
#endif
