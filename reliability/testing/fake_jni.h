// FakeJni: a JNIEnv without a virtual machine, for calling the library's native methods
// directly from C++ tests (under the sanitizers, where no JVM can run). It implements
// the few JNI functions the natives use for strings, byte arrays and exceptions; any
// other entry is null, so an unexpected call fails loudly.
//
// Objects it hands out (strings, arrays, classes) live as long as the FakeJni. One
// instance at a time; not thread-safe.
#pragma once

#include <jni.h>

#include <deque>
#include <string>
#include <vector>

namespace VQFeature::testing {

class FakeJni {
public:
    FakeJni();
    ~FakeJni();
    FakeJni(const FakeJni&) = delete;
    FakeJni& operator=(const FakeJni&) = delete;

    JNIEnv* env() { return &env_; }

    jstring string(const std::string& text);
    jbyteArray bytes(const std::vector<jbyte>& content);
    // The content of a string or array handed out or made by the natives.
    std::string text(jstring s) const;
    const std::vector<jbyte>& content(jbyteArray a) const;

    // The exception the last native raised, "" for none, as "java.lang.Class(\"message\")";
    // reading it clears it.
    std::string takeException();

    // Backing objects (public for the JNI entry points).
    std::deque<std::string> strings;
    std::deque<std::vector<jbyte>> arrays;
    std::deque<std::string> classes;
    std::string pendingClass;
    std::string pendingMessage;

private:
    JNINativeInterface_ table_;
    JNIEnv env_;
};

}  // namespace VQFeature::testing
