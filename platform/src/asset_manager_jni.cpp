// Desktop AAssetManager_fromJava: the managed object names the asset root directory.
#include "android/asset_manager_jni.h"

#include <map>
#include <mutex>
#include <string>

namespace {

// The root directory named by a java.lang.String or java.io.File, or "" for anything else.
std::string rootOf(JNIEnv* env, jobject object) {
    jclass stringClass = env->FindClass("java/lang/String");
    jclass fileClass = env->FindClass("java/io/File");
    std::string root;
    jstring path = nullptr;
    if (stringClass != nullptr && env->IsInstanceOf(object, stringClass)) {
        path = static_cast<jstring>(env->NewLocalRef(object));
    } else if (fileClass != nullptr && env->IsInstanceOf(object, fileClass)) {
        jmethodID getPath = env->GetMethodID(fileClass, "getPath", "()Ljava/lang/String;");
        if (getPath != nullptr) path = static_cast<jstring>(env->CallObjectMethod(object, getPath));
    }
    if (env->ExceptionCheck()) env->ExceptionClear();
    if (path != nullptr) {
        const char* chars = env->GetStringUTFChars(path, nullptr);
        if (chars != nullptr) {
            root = chars;
            env->ReleaseStringUTFChars(path, chars);
        }
        env->DeleteLocalRef(path);
    }
    if (stringClass != nullptr) env->DeleteLocalRef(stringClass);
    if (fileClass != nullptr) env->DeleteLocalRef(fileClass);
    return root;
}

}  // namespace

extern "C" AAssetManager* AAssetManager_fromJava(JNIEnv* env, jobject assetManager) {
    if (env == nullptr || assetManager == nullptr) return nullptr;
    const std::string root = rootOf(env, assetManager);
    if (root.empty()) return nullptr;
    // One manager per root for the life of the process, as the device's manager lives as
    // long as its application; they stay reachable here, so nothing leaks.
    static std::mutex lock;
    static std::map<std::string, AAssetManager*>* managers = new std::map<std::string, AAssetManager*>();
    std::lock_guard<std::mutex> guard(lock);
    auto it = managers->find(root);
    if (it != managers->end()) return it->second;
    AAssetManager* mgr = AAssetManager_fromDirectory(root.c_str());
    if (mgr != nullptr) managers->emplace(root, mgr);
    return mgr;
}
