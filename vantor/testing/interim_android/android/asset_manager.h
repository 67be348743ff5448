// INTERIM, test-only: the Android asset functions the engine uses, until the desktop
// asset manager of platform/ is available. Same declarations as the NDK's.
#pragma once

#include <stddef.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

struct AAssetManager;
typedef struct AAssetManager AAssetManager;
struct AAsset;
typedef struct AAsset AAsset;

enum { AASSET_MODE_UNKNOWN = 0 };

AAsset* AAssetManager_open(AAssetManager* mgr, const char* filename, int mode);
off_t AAsset_getLength(AAsset* asset);
int AAsset_read(AAsset* asset, void* buf, size_t count);
void AAsset_close(AAsset* asset);

// Desktop only: a manager that serves the files below root.
AAssetManager* AAssetManager_fromDirectory(const char* root);
void AAssetManager_delete(AAssetManager* mgr);

#ifdef __cplusplus
}
#endif
