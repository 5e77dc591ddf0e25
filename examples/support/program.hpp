// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "options.hpp"

#include "qxexception.hpp"

#include <cstdio>
#include <exception>
#include <iostream>
#include <new>
#include <string>

namespace examples {

/// What main() returns after work(), and what it says when something goes wrong: one place for all programs.
///
///     int main(int argc, char** argv)
///     {
///         Options options("spectrum", "[MASSES]", "Eigenvalues of a damped chain of masses, as CSV.");
///         return guarded(options, [&] { ... read the command line, work ...; return 0; });
///     }
///
/// work() gives the status. A failure is told on the error stream behind the program's name and gives 1; a command line that
/// cannot be used gives 2, a run that was stopped 130. qxbase::Exception is no std::exception and has to be caught by its own
/// name; `words` is its story for the user.
template <class Work>
int guarded(const Options& options, Work work,
            std::string (*words)(const qxbase::Exception&) = [](const qxbase::Exception& e) { return e.toString(); })
{
    const auto tell = [&](int status, std::string message) {
        while (!message.empty() && message.back() == '\n')
            message.pop_back();
        std::cerr << options.program() << ": " << message << '\n';
        return status;
    };
    try {
        const int status = work();
        return std::cout.flush() && std::fflush(stdout) == 0 ? status : tell(1, "the output cannot be written");
    } catch (const UsageError& e) {
        return tell(2, e.what());
    } catch (const qxbase::CancelException&) {
        return tell(130, "stopped");
    } catch (const qxbase::Exception& e) {
        return tell(1, words(e));
    } catch (const std::bad_alloc&) {
        return tell(1, "out of memory");
    } catch (const std::exception& e) {
        return tell(1, e.what());
    }
}

} // namespace examples
