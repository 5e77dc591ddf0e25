// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// What callback.cpp, which lays numbers out, needs of Java: callback_java.cpp has it, or callback_absent.cpp where the library
// is built without.

#include "qxexception.hpp"

#include <cstddef>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

struct JNIEnv_;

namespace qxcallback {

inline constexpr const char* internalError = "Internal_error_callback";

/// Clears what is pending in Java and raises with its story.
[[noreturn]] void raiseCallback(JNIEnv_* env, const char* id, qxbase::ExceptionArgs args = {});

/// Work in which a failing allocation is this module's failure.
template <class Work>
auto guarded(Work&& work)
{
    try {
        return work();
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    }
    raiseCallback(nullptr, internalError);
}

/// One side of the flat array: pieces that lie one behind the other in Java.
template <class P>
struct Piece
{
    P* data;
    std::size_t size;
};
using Input = std::vector<Piece<const double>>;
using Output = std::vector<Piece<double>>;

/// The number of numbers, which Java must be able to count.
template <class Pieces>
int totalOf(const Pieces& pieces)
{
    std::size_t total = 0;
    for (const auto& piece : pieces)
        total += piece.size;
    if (total > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        QX_RAISE("callback", "Matrix_too_large_for_callback");
    return static_cast<int>(total);
}

/// Calls evalMat and returns its status. env is the calling thread's; the second form attaches the thread for the call.
int callMatlab(JNIEnv_* env, const std::string& name, const Input& in, const Output& out);
int callMatlab(const std::string& name, const Input& in, const Output& out);

/// Clears the pending Java exception, if there is one, and tells what it was: "Exception" with its toString(), "Stack" up
/// to 20 times with a line of its stack. What cannot be found out is left out; nothing is raised, nothing is pending.
qxbase::ExceptionArgs takeStory(JNIEnv_* env) noexcept;

/// Drops what is remembered of Java methods: it belongs to one virtual machine, and tests have several.
void forgetMethods();

} // namespace qxcallback
