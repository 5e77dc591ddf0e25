// SPDX-License-Identifier: LicenseRef-qxkernel
#include "support/java_vm.hpp"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <dlfcn.h>

namespace qxtest {

namespace {

std::atomic<int> warnings{0};

/// What the machine itself prints, piece by piece; a warning may come in several.
jint takeOutput(FILE* stream, const char* format, va_list arguments)
{
    static std::mutex mutex;
    static std::string line;
    char piece[4096];
    const int length = std::vsnprintf(piece, sizeof piece, format, arguments);
    const std::lock_guard lock(mutex);
    std::fputs(piece, stream);
    for (const char* c = piece; *c; ++c) {
        line += *c;
        if (*c == '\n') {
            if (isJniWarning(line))
                ++warnings;
            line.clear();
        }
    }
    return length;
}

void* javaLibrary()
{
    static void* const library = []() -> void* {
        for (const char* home : {static_cast<const char*>(std::getenv("JAVA_HOME")), "/usr/lib/jvm/default-java"})
            if (home)
                if (void* found = dlopen((std::string(home) + "/lib/server/libjvm.so").c_str(), RTLD_NOW | RTLD_LOCAL))
                    return found;
        return nullptr;
    }();
    return library;
}

} // namespace

bool isJniWarning(const std::string& line)
{
    return line.find("WARNING in native method") != std::string::npos
           || line.find("WARNING: JNI local refs") != std::string::npos
           || line.find("FATAL ERROR in native method") != std::string::npos;
}

int jniWarnings() { return warnings; }

bool openJavaLibrary() { return javaLibrary() != nullptr; }

JavaVM* startVM(const std::string& classPath, std::vector<std::string> extra)
{
    static JavaVM* const vm = [&]() -> JavaVM* {
        if (!javaLibrary())
            return nullptr;
        const auto create = reinterpret_cast<jint (*)(JavaVM**, void**, void*)>(dlsym(javaLibrary(), "JNI_CreateJavaVM"));
        extra.insert(extra.begin(), {"-Djava.class.path=" + classPath, "-Xmx64m", "-XX:+UseSerialGC", "-Xrs", "-Xcheck:jni",
                                      "-XX:+AllowUserSignalHandlers"});
        std::vector<JavaVMOption> options;
        for (std::string& text : extra)
            options.push_back({text.data(), nullptr});
        static char hook[] = "vfprintf";
        options.push_back({hook, reinterpret_cast<void*>(&takeOutput)});
        JavaVMInitArgs arguments{JNI_VERSION_1_8, static_cast<jint>(options.size()), options.data(), JNI_FALSE};
        JavaVM* made = nullptr;
        void* env = nullptr;
        return create(&made, &env, &arguments) == JNI_OK ? made : nullptr;
    }();
    return vm;
}

} // namespace qxtest
