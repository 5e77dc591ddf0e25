#include "support/java_vm.hpp"

#include <cstdlib>

#include <dlfcn.h>

namespace qxtest {

namespace {

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

bool openJavaLibrary() { return javaLibrary() != nullptr; }

JavaVM* startVM(const std::string& classPath)
{
    static JavaVM* const vm = [&]() -> JavaVM* {
        if (!javaLibrary())
            return nullptr;
        const auto create = reinterpret_cast<jint (*)(JavaVM**, void**, void*)>(dlsym(javaLibrary(), "JNI_CreateJavaVM"));
        std::string path = "-Djava.class.path=" + classPath, small = "-Xmx64m", collector = "-XX:+UseSerialGC";
        JavaVMOption options[] = {{path.data(), nullptr}, {small.data(), nullptr}, {collector.data(), nullptr}};
        JavaVMInitArgs arguments{JNI_VERSION_1_8, 3, options, JNI_FALSE};
        JavaVM* made = nullptr;
        void* env = nullptr;
        return create(&made, &env, &arguments) == JNI_OK ? made : nullptr;
    }();
    return vm;
}

} // namespace qxtest
