// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Public calls of every module, named, each ready to be made again and again under failing allocations.

#include <functional>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace qxtest {

/// A call that stands ready, on objects of its own.
struct Prepared
{
    std::function<void()> make;         ///< the call itself
    std::function<std::string()> state; ///< all that can be seen of the objects
};

struct Call
{
    std::string module, name;
    std::string failsBy; ///< identifiers at blanks; "bad_alloc" is std::bad_alloc
    std::function<Prepared()> prepare;
};

inline void PrintTo(const Call& call, std::ostream* out) { *out << call.module << ' ' << call.name; }

/// All calls of a module share the way in which they fail.
class Module
{
public:
    Module(std::string name, std::string failsBy) : name_(std::move(name)), failsBy_(std::move(failsBy)) {}

    /// makeObjects gives a shared_ptr to what the call acts on, show writes it to a stream.
    template <class MakeObjects, class Act, class Show>
    Module& add(const std::string& call, MakeObjects makeObjects, Act act, Show show)
    {
        calls_.push_back({name_, call, failsBy_, [=] {
                              const auto objects = makeObjects();
                              return Prepared{[=] { act(*objects); }, [=] {
                                                  std::ostringstream out;
                                                  out.precision(17);
                                                  show(out, *objects);
                                                  return out.str();
                                              }};
                          }});
        return *this;
    }
    /// The last call fails in another way.
    Module& failingBy(const std::string& identifiers)
    {
        calls_.back().failsBy = identifiers;
        return *this;
    }
    const std::vector<Call>& calls() const { return calls_; }

private:
    std::string name_, failsBy_;
    std::vector<Call> calls_;
};

/// A maker of one default-constructed or copied object.
template <class T>
auto fresh(const T& prototype)
{
    return [prototype] { return std::make_shared<T>(prototype); };
}

template <class Numbers>
void showAll(std::ostream& out, const Numbers& numbers)
{
    for (const auto& x : numbers)
        out << x << ' ';
    out << '\n';
}

std::vector<Call> baseCalls();
std::vector<Call> symbolicCalls();
std::vector<Call> compilerCalls();
std::vector<Call> denseCalls();
std::vector<Call> interpCalls();
std::vector<Call> daeCalls();
std::vector<Call> sparseCalls();
std::vector<Call> functionsCalls();
std::vector<Call> evalCalls();
std::vector<Call> solversCalls();
std::vector<Call> optimCalls();
std::vector<Call> formulasCalls();

} // namespace qxtest
