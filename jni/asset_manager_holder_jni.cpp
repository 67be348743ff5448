// AssetManagerHolderJNI.setAssetManager: registers the host's asset manager for the
// whole process. Written by hand (not generated): it is one static native that only
// converts the managed object with AAssetManager_fromJava.
//
// On the device the argument is an android.content.res.AssetManager; the desktop build
// accepts a String or java.io.File naming the asset root directory. The managers stay
// owned by the platform (they live as long as the application), never by the holder.
#include <jni.h>

#include "android/asset_manager_jni.h"
#include "vantor/asset_manager_holder.h"

extern "C" JNIEXPORT void JNICALL
Java_com_quorvane_zul_mediaprocessors_assetManager_1jni_AssetManagerHolderJNI_setAssetManager(JNIEnv* env, jclass,
                                                                                             jobject assetManager) {
    if (assetManager == nullptr) {
        VQFeature::AssetManagerHolder::getInstance().set(nullptr);  // back to the file system
        return;
    }
    AAssetManager* manager = AAssetManager_fromJava(env, assetManager);
    if (env->ExceptionCheck()) return;
    if (manager == nullptr) {
        // Refused without touching the current registration.
        jclass illegalArgument = env->FindClass("java/lang/IllegalArgumentException");
        if (illegalArgument != nullptr) env->ThrowNew(illegalArgument, "not a usable asset manager");
        return;
    }
    VQFeature::AssetManagerHolder::getInstance().set(manager);
}
