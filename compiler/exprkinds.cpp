// SPDX-License-Identifier: LicenseRef-qxkernel
#include "exprcomp.hpp"

#include "compiler/exprkinds_detail.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"

#include <bit>
#include <unordered_map>

namespace {

constexpr bool kindsAreInOrder()
{
    for (int i = 0; i < qxcompiler::kindCount; ++i)
        if (qxcompiler::kindTable[i].kind != i + 1)
            return false;
    return true;
}
static_assert(kindsAreInOrder());

/// The hash of a double without its sign made positive: -0 as 0, every NaN as one.
std::uint32_t hashOfNumber(double x)
{
    if (x == 0)
        x = 0.0;
    const auto bits = std::bit_cast<std::uint64_t>(qxIsNaN(x) ? qxGetNaN() : x);
    const auto folded = static_cast<std::uint32_t>(bits) ^ static_cast<std::uint32_t>(bits >> 32);
    const auto shifted = [](std::uint32_t a, int n) { return static_cast<std::uint32_t>(static_cast<std::int32_t>(a) >> n); };
    std::uint32_t u = folded + ~(folded << 9);
    u = (u ^ shifted(u, 14)) * 17u;
    return u ^ shifted(u, 10);
}

} // namespace

namespace qxcompiler {

const KindInfo* infoOf(int kind)
{
    return kind >= 1 && kind <= kindCount ? &kindTable[kind - 1] : nullptr;
}

} // namespace qxcompiler

using qxcompiler::infoOf;

int ExprComp::kindOf(std::string_view name, int nArgs)
{
    struct Hash
    {
        std::size_t operator()(const std::pair<std::string_view, int>& key) const { return QxHashFun()(key); }
    };
    static const auto table = [] {
        std::unordered_map<std::pair<std::string_view, int>, int, Hash> made;
        for (const qxcompiler::KindInfo& info : qxcompiler::kindTable)
            if (info.inText)
                made.emplace(std::pair<std::string_view, int>(info.name, info.nArgs), info.kind);
        return made;
    }();
    const auto found = table.find({name, nArgs});
    return found == table.end() ? 0 : found->second;
}

int ExprComp::nArgsOf(int kind)
{
    const qxcompiler::KindInfo* const info = infoOf(kind);
    return info ? info->nArgs : -1;
}

std::string ExprComp::nameOf(int kind)
{
    const qxcompiler::KindInfo* const info = infoOf(kind);
    return info ? info->name : "";
}

ExprComp::Def::Def(int ownId, double number) : id(ownId), kind(Constant), nArgs(0), args{}, value(number) {}

ExprComp::Def::Def(int ownId, int ownKind, const int* arguments, std::size_t count)
    : id(ownId), kind(ownKind), nArgs(static_cast<int>(count)), args{}, value(0)
{
    if (count > args.size())
        QX_RAISE("exprcomp", "QUORIX_assertion_failure");
    std::copy_n(arguments, count, args.begin());
    checkArgs();
}

void ExprComp::Def::checkArgs() const
{
    const qxcompiler::KindInfo* const info = infoOf(kind);
    if (!info || info->nArgs != nArgs)
        QX_RAISE("exprcomp", "QUORIX_assertion_failure");
}

std::string ExprComp::Def::getName() const
{
    return kind == Constant ? qxcompiler::constantText(value) : nameOf(kind);
}

std::string ExprComp::Def::toString() const
{
    std::string text = getName();
    for (int i = 0; i < nArgs; ++i)
        text += (i ? ',' : '(') + qxutil::toString(args[static_cast<std::size_t>(i)]);
    return nArgs ? text + ')' : text;
}

bool ExprComp::Def::getNumVal(double& number) const
{
    if (kind != Constant)
        return false;
    number = value;
    return true;
}

int ExprComp::Def::getExprHash() const
{
    if (kind == Constant)
        return static_cast<int>(hashOfNumber(value));
    const QxHashFun hash;
    std::uint32_t h = hash(kind);
    const auto mix = [&](int arg) { h = hash(h) * 69069u + hash(arg) * 362437u; };
    if (isBinaryCommutative()) {
        mix(std::min(args[0], args[1]));
        mix(std::max(args[0], args[1]));
    } else {
        for (int i = 0; i < nArgs; ++i)
            mix(args[static_cast<std::size_t>(i)]);
    }
    return static_cast<int>(h);
}

bool ExprComp::Def::exprEqual(const Def& a, const Def& b)
{
    if (a.kind != b.kind || a.nArgs != b.nArgs)
        return false;
    if (a.kind == Constant)
        return a.value == b.value;
    if (std::equal(a.args.begin(), a.args.begin() + a.nArgs, b.args.begin()))
        return true;
    return a.isBinaryCommutative() && a.args[0] == b.args[1] && a.args[1] == b.args[0];
}

bool ExprComp::Def::isBinaryCommutative() const
{
    const qxcompiler::KindInfo* const info = infoOf(kind);
    return info && info->commutative && nArgs == 2;
}
