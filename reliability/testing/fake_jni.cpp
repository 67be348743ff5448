#include "reliability/testing/fake_jni.h"

#include <cstdlib>
#include <cstring>

namespace VQFeature::testing {

namespace {

FakeJni* gCurrent = nullptr;

std::string* asString(jobject o) { return reinterpret_cast<std::string*>(o); }
std::vector<jbyte>* asArray(jobject o) { return reinterpret_cast<std::vector<jbyte>*>(o); }

jclass JNICALL findClass(JNIEnv*, const char* name) {
    gCurrent->classes.emplace_back(name);
    return reinterpret_cast<jclass>(&gCurrent->classes.back());
}

jint JNICALL throwNew(JNIEnv*, jclass cls, const char* message) {
    gCurrent->pendingClass = *asString(cls);
    gCurrent->pendingMessage = message != nullptr ? message : "";
    return 0;
}

void JNICALL exceptionClear(JNIEnv*) {
    gCurrent->pendingClass.clear();
    gCurrent->pendingMessage.clear();
}

jboolean JNICALL exceptionCheck(JNIEnv*) { return gCurrent->pendingClass.empty() ? JNI_FALSE : JNI_TRUE; }

void JNICALL deleteLocalRef(JNIEnv*, jobject) {}

jstring JNICALL newStringUTF(JNIEnv*, const char* utf) { return gCurrent->string(utf); }

const char* JNICALL getStringUTFChars(JNIEnv*, jstring s, jboolean* isCopy) {
    if (isCopy != nullptr) *isCopy = JNI_FALSE;
    return asString(s)->c_str();
}

void JNICALL releaseStringUTFChars(JNIEnv*, jstring, const char*) {}

jsize JNICALL getArrayLength(JNIEnv*, jarray a) { return static_cast<jsize>(asArray(a)->size()); }

jbyte* JNICALL getByteArrayElements(JNIEnv*, jbyteArray a, jboolean* isCopy) {
    if (isCopy != nullptr) *isCopy = JNI_FALSE;
    return asArray(a)->data();
}

void JNICALL releaseByteArrayElements(JNIEnv*, jbyteArray, jbyte*, jint) {}

}  // namespace

FakeJni::FakeJni() : table_(), env_() {
    if (gCurrent != nullptr) std::abort();  // one at a time
    gCurrent = this;
    table_.FindClass = findClass;
    table_.ThrowNew = throwNew;
    table_.ExceptionClear = exceptionClear;
    table_.ExceptionCheck = exceptionCheck;
    table_.DeleteLocalRef = deleteLocalRef;
    table_.NewStringUTF = newStringUTF;
    table_.GetStringUTFChars = getStringUTFChars;
    table_.ReleaseStringUTFChars = releaseStringUTFChars;
    table_.GetArrayLength = getArrayLength;
    table_.GetByteArrayElements = getByteArrayElements;
    table_.ReleaseByteArrayElements = releaseByteArrayElements;
    env_.functions = &table_;
}

FakeJni::~FakeJni() { gCurrent = nullptr; }

jstring FakeJni::string(const std::string& text) {
    strings.push_back(text);
    return reinterpret_cast<jstring>(&strings.back());
}

jbyteArray FakeJni::bytes(const std::vector<jbyte>& content) {
    arrays.push_back(content);
    return reinterpret_cast<jbyteArray>(&arrays.back());
}

std::string FakeJni::text(jstring s) const { return *asString(s); }

const std::vector<jbyte>& FakeJni::content(jbyteArray a) const { return *asArray(a); }

std::string FakeJni::takeException() {
    if (pendingClass.empty()) return "";
    std::string name = pendingClass;
    for (char& c : name) {
        if (c == '/') c = '.';
    }
    std::string out = name + "(\"" + pendingMessage + "\")";
    pendingClass.clear();
    pendingMessage.clear();
    return out;
}

}  // namespace VQFeature::testing
