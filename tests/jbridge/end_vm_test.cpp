// SPDX-License-Identifier: LicenseRef-qxkernel
// What remains when the virtual machine has ended. A program of its own: there is no second one in a process.
#include "callback.hpp"
#include "qxjni.hpp"

#include "support/failure.hpp"
#include "support/java_vm.hpp"

#include <gtest/gtest.h>

#include <future>
#include <thread>

using qxtest::idOf;

TEST(AVMThatHasEnded, IsNoneAndDidNotWaitForAttachedThreads)
{
    JavaVM* vm = *QX_TEST_CLASSES ? qxtest::startVM(QX_TEST_CLASSES) : nullptr;
    if (!vm)
        GTEST_SKIP() << "no Java on this machine";
    Callback::solverCallback(1);
    std::promise<void> attached, ended;
    std::thread waiting([&] {
        const qxutil::AttachThread scope;
        EXPECT_NE(qxutil::VMData::getJNIEnv(), nullptr);
        attached.set_value();
        ended.get_future().wait();
    });
    attached.get_future().wait();

    EXPECT_EQ(vm->DestroyJavaVM(), JNI_OK); // would wait for a thread that is no daemon
    ended.set_value();
    waiting.join();

    std::vector<double> out(1, 5.0);
    double x = 2;
    EXPECT_EQ(idOf([] { Callback::solverCallback(2); }), "Internal_error_callback");
    EXPECT_EQ(idOf([&] { Callback::evalDblMat("sum", {&x}, 1, &x); }), "Internal_error_callback");
    EXPECT_EQ(x, 2);
    std::thread([] { EXPECT_EQ(idOf([] { Callback::solverCallback(3); }), "Internal_error_callback"); }).join();
    EXPECT_EQ(qxtest::jniWarnings(), 0);
}
