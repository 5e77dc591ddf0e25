// SPDX-License-Identifier: LicenseRef-qxkernel
#include "exprcomp.hpp"

#include "qxexception.hpp"
#include "qxnumber.hpp"

#include <algorithm>
#include <climits>
#include <deque>

namespace {

[[noreturn]] void broken()
{
    QX_RAISE("exprcomp", "QUORIX_assertion_failure");
}

std::size_t at(int i)
{
    return static_cast<std::size_t>(i);
}

/// Ids to new ids. Ids mostly come from one counter: then they are positions in a vector, otherwise keys of a hash table.
class IdMap
{
public:
    IdMap(const std::vector<int>& inputs, const std::vector<ExprComp::Def>& defs)
    {
        long low = LONG_MAX, high = LONG_MIN;
        const auto include = [&](int id) {
            low = std::min(low, static_cast<long>(id));
            high = std::max(high, static_cast<long>(id));
        };
        for (const int id : inputs)
            include(id);
        for (const ExprComp::Def& def : defs)
            include(def.id);
        const std::size_t count = inputs.size() + defs.size();
        if (count == 0 || high - low >= 4 * static_cast<long>(count)) {
            sparse_.resize(static_cast<unsigned>(count));
            return;
        }
        low_ = low;
        dense_.assign(static_cast<std::size_t>(high - low + 1), none);
    }

    /// False if the id is there.
    bool insert(int id, int newId)
    {
        if (dense_.empty())
            return sparse_.insert(id, newId).inserted != 0;
        int& place = dense_[static_cast<std::size_t>(id - low_)];
        if (place != none)
            return false;
        place = newId;
        return true;
    }

    bool find(int id, int& newId) const
    {
        if (dense_.empty()) {
            const QxHashLookup hit = sparse_.lookup(id);
            if (hit)
                newId = sparse_.at(hit.slot);
            return static_cast<bool>(hit);
        }
        const long i = id - low_;
        if (i < 0 || i >= static_cast<long>(dense_.size()) || dense_[static_cast<std::size_t>(i)] == none)
            return false;
        newId = dense_[static_cast<std::size_t>(i)];
        return true;
    }

private:
    static constexpr int none = INT_MIN;
    long low_ = 0;
    std::vector<int> dense_;
    QxHashMap<int, int> sparse_;
};

} // namespace

void ExprComp::crossRef()
{
    // New identities: -1 - i for input i, u for definition u. A known name moves along.
    IdMap newIds(inputs, defs);
    QxHashMap<std::string, int> newNames(names.size(), true);
    const auto rename = [&](int oldId, int newId, const char* failure) {
        if (!newIds.insert(oldId, newId))
            QX_RAISE("exprcomp", failure + getVarName(oldId));
        if (const QxHashLookup name = names.lookup(oldId))
            newNames.insert(newId, names.at(name.slot));
    };
    for (std::size_t i = 0; i < inputs.size(); ++i)
        rename(inputs[i], -1 - static_cast<int>(i), "Duplicate input: ");
    for (std::size_t u = 0; u < defs.size(); ++u)
        rename(defs[u].id, static_cast<int>(u), "Duplicate definition of ");

    for (std::size_t i = 0; i < inputs.size(); ++i)
        inputs[i] = -1 - static_cast<int>(i);
    std::vector<int> undefined;
    for (std::size_t u = 0; u < defs.size(); ++u) {
        defs[u].id = static_cast<int>(u);
        for (int k = 0; k < defs[u].nArgs; ++k) {
            int& arg = defs[u].args[at(k)];
            if (int newId; newIds.find(arg, newId))
                arg = newId;
            else
                undefined.push_back(arg);
        }
    }
    if (!undefined.empty()) {
        constexpr std::size_t most = 10;
        std::string message = "Undefined inputs: ";
        for (std::size_t i = 0; i < std::min(most, undefined.size()); ++i)
            message += getVarName(undefined[i]);
        if (undefined.size() > most)
            message += " (" + qxutil::toString(undefined.size() - most) + " more)";
        QX_RAISE("exprcomp", message);
    }
    for (std::size_t k = 0; k < outputs.size(); ++k) {
        if (int newId; newIds.find(outputs[k], newId))
            outputs[k] = newId;
        else
            QX_RAISE("exprcomp", "Output #" + qxutil::toString(k) + " lacks definition.");
    }
    std::swap(names, newNames);
    for (std::size_t i = 0; i < inputs.size(); ++i)
        inputIndex.insert(inputs[i], static_cast<int>(i));

    // An output that is an input or an earlier output becomes a definition of its own.
    for (std::size_t k = 0; k < outputs.size(); ++k) {
        if (outputs[k] < 0 || outputIndex.contains(outputs[k])) {
            const int own = static_cast<int>(defs.size());
            defs.push_back(Def(own, Identity, &outputs[k], 1));
            outputs[k] = own;
        }
        outputIndex.insert(outputs[k], static_cast<int>(k));
    }
}

void ExprComp::topoSort()
{
    enum class State : unsigned char { Unseen, Open, Done };
    std::vector<State> state(defs.size(), State::Unseen);
    std::vector<int> pos(defs.size(), 0), stack;
    order.clear();
    for (const int output : outputs) {
        if (output < 0)
            broken();
        if (state[at(output)] == State::Unseen)
            stack.push_back(output);
        while (!stack.empty()) {
            const int d = stack.back();
            stack.pop_back();
            if (state[at(d)] == State::Open) {
                state[at(d)] = State::Done;
                pos[at(d)] = static_cast<int>(order.size());
                order.push_back(d);
            } else if (state[at(d)] == State::Unseen) {
                state[at(d)] = State::Open;
                stack.push_back(d);
                for (int k = 0; k < defs[at(d)].nArgs; ++k)
                    if (const int arg = defs[at(d)].args[at(k)]; arg >= 0)
                        stack.push_back(arg);
            }
        }
    }

    // A definition on a cycle comes before one of its arguments, or is its own.
    lifeRange.assign(defs.size(), {0, 0});
    for (int i = 0; i < static_cast<int>(order.size()); ++i) {
        const int d = order[at(i)];
        lifeRange[at(d)] = {i, i};
        for (int k = 0; k < defs[at(d)].nArgs; ++k)
            if (const int arg = defs[at(d)].args[at(k)]; arg >= 0) {
                if (i <= pos[at(arg)])
                    QX_RAISE("exprcomp", "Cyclic dependency for definition #" + qxutil::toString(d) + ".");
                lifeRange[at(arg)].second = i;
            }
    }
}

namespace {

using Def = ExprComp::Def;

/// The value of an operation on constants; only for sign, sums, products and quotients that are finite.
bool fold(const Def& def, double a, double b, double& result)
{
    switch (def.kind) {
    case ExprComp::UnaryPlus:  result = a; return true;
    case ExprComp::UnaryMinus: result = -a; return true;
    case ExprComp::Plus:       result = a + b; return true;
    case ExprComp::Minus:      result = a - b; return true;
    case ExprComp::Times:      result = a * b; return true;
    case ExprComp::Divide:     result = a / b; return !qxIsNaNorInf(result);
    default:                   return false;
    }
}

Def unary(int id, int kind, int a)
{
    return Def(id, kind, &a, 1);
}

Def binary(int id, int kind, int a, int b)
{
    const int args[] = {a, b};
    return Def(id, kind, args, 2);
}

/// An equal or cheaper form of a definition whose arguments are final.
Def rewritten(const Def& def, const std::vector<Def>& defs)
{
    const auto source = [&](int k) { return def.args[at(k)] >= 0 ? &defs[at(def.args[at(k)])] : nullptr; };
    const Def* const a = def.nArgs > 0 ? source(0) : nullptr;
    const Def* const b = def.nArgs > 1 ? source(1) : nullptr;
    const auto isMinus = [](const Def* d) { return d && d->kind == ExprComp::UnaryMinus; };
    double number;
    switch (def.kind) {
    case ExprComp::UnaryMinus: // --a = a
        return isMinus(a) ? unary(def.id, ExprComp::Identity, a->args[0]) : def;
    case ExprComp::Minus: // a - (-b) = a + b
        return isMinus(b) ? binary(def.id, ExprComp::Plus, def.args[0], b->args[0]) : def;
    case ExprComp::Plus: // a + (-b) = a - b, (-a) + b = b - a
        if (isMinus(b))
            return binary(def.id, ExprComp::Minus, def.args[0], b->args[0]);
        return isMinus(a) ? binary(def.id, ExprComp::Minus, def.args[1], a->args[0]) : def;
    case ExprComp::Divide:
        return b && b->getNumVal(number) && number != 0
                   ? binary(def.id, ExprComp::DivideNonZero, def.args[0], def.args[1])
                   : def;
    case ExprComp::Power:
        if (b && b->getNumVal(number))
            for (const auto& [exponent, kind] : {std::pair(1.0, ExprComp::Identity), std::pair(2.0, ExprComp::Square),
                                                 std::pair(3.0, ExprComp::Cube), std::pair(4.0, ExprComp::Fourth)})
                if (number == exponent)
                    return unary(def.id, kind, def.args[0]);
        return def;
    default:
        return def;
    }
}

} // namespace

void ExprComp::eliminateCommon()
{
    constexpr int none = INT_MIN;
    std::vector<int> alias(defs.size(), none); // inputs stand for themselves
    for (const int output : outputs)
        alias[at(output)] = output;
    QxHashMap<int, int> byHash(static_cast<unsigned>(order.size()), true);

    for (const int d : order) {
        Def& def = defs[at(d)];
        bool constantArgs = def.nArgs > 0;
        double values[3] = {};
        for (int k = 0; k < def.nArgs; ++k) {
            int& arg = def.args[at(k)];
            if (arg >= 0 && alias[at(arg)] == none)
                broken();
            arg = arg < 0 ? arg : alias[at(arg)];
            constantArgs = constantArgs && arg >= 0 && defs[at(arg)].getNumVal(values[k]);
        }
        double result;
        if (constantArgs && fold(def, values[0], values[1], result))
            def = Def(d, result);
        def = rewritten(def, defs);

        if (def.kind == Identity) {
            alias[at(d)] = def.args[0];
            continue;
        }
        const QxHashInsert entry = byHash.insertKey(def.getExprHash());
        int& candidate = byHash.at(entry.slot);
        if (!entry.inserted && Def::exprEqual(def, defs[at(candidate)])) {
            alias[at(d)] = candidate;
        } else {
            alias[at(d)] = d;
            candidate = d;
        }
    }
}

void ExprComp::allocateRegs()
{
    regOf.assign(defs.size(), -1);
    std::deque<int> free{0, 1, 2, 3, 4, 5, 6, 7};
    int next = static_cast<int>(free.size());
    std::vector<int> dying;
    for (int i = 0; i < static_cast<int>(order.size()); ++i) {
        const int d = order[at(i)];
        const Def& def = defs[at(d)];
        dying.clear();
        for (int k = 0; k < def.nArgs; ++k)
            if (const int arg = def.args[at(k)]; arg >= 0 && lifeRange[at(arg)].second == i && regOf[at(arg)] >= 0)
                dying.push_back(regOf[at(arg)]);
        std::sort(dying.begin(), dying.end());
        free.insert(free.end(), dying.begin(), std::unique(dying.begin(), dying.end()));

        if (def.kind == Constant || outputIndex.contains(d))
            continue; // pushed where it is used; kept in the array of outputs
        if (free.empty()) {
            regOf[at(d)] = next++;
        } else {
            regOf[at(d)] = free.front();
            free.pop_front();
        }
    }
    regState.assign(at(next), RegMode::Free);
}

void ExprComp::optimizeStack()
{
    constexpr int longestChain = 26; // then the operand stack is empty again, and a method can end
    stackMode.assign(defs.size(), 0);
    swapMode.assign(defs.size(), 0);
    int chainStart = 0;
    for (int i = 0; i < static_cast<int>(order.size()); ++i) {
        const int d = order[at(i)];
        const Def& def = defs[at(d)];
        if (def.nArgs == 0 || def.nArgs > 2 || i - chainStart >= longestChain) {
            chainStart = i;
            continue;
        }
        const int before = i > 0 ? order[at(i - 1)] : -1;
        const auto isOnStack = [&](int arg) {
            return arg >= 0 && arg == before && defs[at(arg)].kind != Constant && !outputIndex.contains(arg);
        };
        int k = 0;
        while (k < def.nArgs && !isOnStack(def.args[at(k)]))
            ++k;
        if (k == def.nArgs) {
            chainStart = i;
            continue;
        }
        stackMode[at(before)] = lifeRange[at(before)].second == i ? 1 : 2;
        if (def.nArgs == 2) {
            if (def.args[0] == def.args[1])
                swapMode[at(d)] = 2;
            else if (k == 1 && !def.isBinaryCommutative())
                swapMode[at(d)] = 1;
        }
    }
}
