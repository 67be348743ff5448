// Android asset access from managed code, desktop stand-in. AAssetManager_fromJava
// takes a java.lang.String or java.io.File naming the asset root directory (the desktop
// has no android.content.res.AssetManager); null or anything else gives null. Managers
// made here are kept for the life of the process, one per root, like the device's.
#pragma once

#include <jni.h>

#include "android/asset_manager.h"

#ifdef __cplusplus
extern "C" {
#endif

AAssetManager* AAssetManager_fromJava(JNIEnv* env, jobject assetManager);

#ifdef __cplusplus
}
#endif
