// Test-only natives for the JVM suite: runs a callback object on a fresh native
// thread the virtual machine has never seen, the way a framework worker would, and
// decodes blobs with the C++ decoder for comparison with the Java one.
#include <jni.h>

#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "encoding/message_json.h"
#include "jni/byte_array_callback.h"

namespace {

using CallbackHolder = std::shared_ptr<VQFeature::ByteArrayCallBack>;

}  // namespace

// Calls onResult(bytes) of the callback behind the shared handle on a new native
// thread, copies the (possibly edited) bytes back into data, and returns the thread's
// GetEnv status after the call: JNI_EDETACHED (-2) when the callback detached it again.
// Returns 1 when a C++ exception (a Java exception coming back) left the callback.
extern "C" JNIEXPORT jint JNICALL Java_com_quorvane_zul_mediaprocessors_jnitest_TestHooks_onResultOnNativeThread(
    JNIEnv* env, jclass, jlong callbackHandle, jbyteArray data) {
    JavaVM* vm = nullptr;
    if (env->GetJavaVM(&vm) != JNI_OK) return -100;
    CallbackHolder holder = *reinterpret_cast<CallbackHolder*>(callbackHandle);
    const jsize length = env->GetArrayLength(data);
    std::vector<char> bytes(static_cast<size_t>(length));
    env->GetByteArrayRegion(data, 0, length, reinterpret_cast<jbyte*>(bytes.data()));

    jint status = -101;
    std::thread worker([&] {
        JNIEnv* unused = nullptr;
        if (vm->GetEnv(reinterpret_cast<void**>(&unused), JNI_VERSION_1_2) != JNI_EDETACHED) {
            status = -102;  // the thread must start unknown to the VM
            return;
        }
        try {
            holder->onResult(bytes.data(), bytes.size());
        } catch (const std::exception&) {
            status = 1;
            return;
        }
        status = vm->GetEnv(reinterpret_cast<void**>(&unused), JNI_VERSION_1_2);
    });
    worker.join();
    env->SetByteArrayRegion(data, 0, length, reinterpret_cast<const jbyte*>(bytes.data()));
    return status;
}

extern "C" JNIEXPORT jlong JNICALL Java_com_quorvane_zul_mediaprocessors_jnitest_TestHooks_copyCallbackHolder(
    JNIEnv*, jclass, jlong callbackHandle) {
    return reinterpret_cast<jlong>(new CallbackHolder(*reinterpret_cast<CallbackHolder*>(callbackHandle)));
}

extern "C" JNIEXPORT void JNICALL Java_com_quorvane_zul_mediaprocessors_jnitest_TestHooks_deleteCallbackHolder(
    JNIEnv*, jclass, jlong holder) {
    delete reinterpret_cast<CallbackHolder*>(holder);
}

// The C++ decoder's JSON of a blob of the given kind (what the vqfe tool prints), or
// "error: " and the decoder's reason.
extern "C" JNIEXPORT jstring JNICALL Java_com_quorvane_zul_mediaprocessors_jnitest_TestHooks_blobToJson(
    JNIEnv* env, jclass, jint kind, jbyteArray blob) {
    std::vector<char> bytes(static_cast<size_t>(env->GetArrayLength(blob)));
    env->GetByteArrayRegion(blob, 0, static_cast<jsize>(bytes.size()), reinterpret_cast<jbyte*>(bytes.data()));
    std::string error;
    std::string json = VQFeature::blobToJson(kind, bytes.data(), bytes.size(), &error);
    return env->NewStringUTF(json.empty() ? ("error: " + error).c_str() : json.c_str());
}
