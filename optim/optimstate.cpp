// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optimstate.hpp"

#include "optim/call_detail.hpp"
#include "optim/optiontable_detail.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <mutex>
#include <new>
#include <vector>

#include <dlfcn.h>

using qxbase::Exception;
using qxbase::Prop;
using qxoptim::Home;
using qxoptim::Kind;
using qxoptim::Option;
using qxoptim::RuleType;

namespace {

constexpr const char* kLibraryFile = "libqxsnopt.dylib";
constexpr int kPrintUnit = 15;
constexpr int kUserSlack = 500; // what the optimizer itself keeps at the start of a workspace

/// The opened library and where to look for it: one for the process.
struct Library
{
    std::string folder;
    boost::shared_ptr<qxbase::QxLib> opened;
};

Library& library()
{
    static Library instance;
    return instance;
}

/// The folder of the file that this code was loaded from, with a slash at its end; empty when that is unknown.
std::string ownFolder()
{
    Dl_info info;
    if (dladdr(reinterpret_cast<const void*>(&ownFolder), &info) == 0 || info.dli_fname == nullptr)
        return {};
    const std::string file = info.dli_fname;
    return file.substr(0, file.find_last_of('/') + 1);
}

boost::shared_ptr<const qxbase::Check> makeCheck(const Option& option)
{
    using namespace qxbase;
    ChkString::Choices choices;
    std::vector<std::string> values;
    for (const auto& [value, description] : option.choices) {
        choices.emplace_back(value, description);
        values.emplace_back(value);
    }
    const int low = static_cast<int>(option.low), high = option.rule == RuleType::Integer ? static_cast<int>(option.high) : 0;
    const Check* check = nullptr;
    switch (option.rule) {
    case RuleType::Integer:
        check = option.fallback ? new ChkIntInterval(static_cast<int>(*option.fallback), low, high)
                                : new ChkIntInterval(low, high);
        break;
    case RuleType::Real:
        check = option.fallback ? new ChkDoubleInterval(*option.fallback, option.low, option.high)
                                : new ChkDoubleInterval(option.low, option.high);
        break;
    case RuleType::OpenReal: check = new ChkDoubleOpenInterval(option.fallback.value(), option.low, option.high); break;
    case RuleType::AnyText: check = new ChkString; break;
    case RuleType::Choice:
        check = option.fallbackText != nullptr ? new ChkString(option.fallbackText, choices) : new ChkString(values);
        break;
    case RuleType::Index: check = new ChkStringToIndex(option.fallbackText, choices); break;
    }
    return boost::shared_ptr<const Check>(check);
}

} // namespace

void qxoptim::registerProperties()
{
    for (const Option& option : optionTable())
        Prop::setCheckGlobal(option.property, makeCheck(option));
}

void qxoptim::initializeOptim()
{
    static std::once_flag once;
    std::call_once(once, registerProperties);
}

OptimState::OptimState(int cwLength, int iwLength, int rwLength, bool np, int userIntCount, int userRealCount)
    : np_(np), userIntCount_(userIntCount), userRealCount_(userRealCount)
{
    reallocate(cwLength, iwLength, rwLength);
}

OptimState::~OptimState()
{
    try {
        if (printLib_)
            QX_OPTIM_ENTRY(printLib_, qxsnclose)(&kPrintUnit);
    } catch (const Exception&) { // a library that opens files and cannot close them
    }
}

// --- The library --------------------------------------------------------------------------------------------------------

void OptimState::setLibraryPath(const std::string& folder)
{
    library().folder = folder;
    library().opened.reset();
}

void OptimState::loadLib()
{
    if (isLibLoaded())
        return;
    std::vector<std::string> candidates;
    if (const std::string& folder = library().folder; !folder.empty())
        candidates.push_back(folder + "/" + kLibraryFile);
    if (const std::string folder = ownFolder(); !folder.empty())
        candidates.push_back(folder + kLibraryFile);
    candidates.push_back(kLibraryFile);

    std::string looked;
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        looked += (i > 0 ? "; " : "") + candidates[i];
        try {
            library().opened.reset(new qxbase::QxLib(candidates[i]));
            return;
        } catch (Exception& e) {
            if (i + 1 < candidates.size())
                continue;
            e.add("optimstate", __LINE__, "Cannot_open_library", {{"Looked_in", looked + " (the loader's path)"}});
            throw;
        }
    }
}

bool OptimState::isLibLoaded() { return library().opened != nullptr; }

boost::shared_ptr<qxbase::QxLib> OptimState::getOptlib() { return library().opened; }

void OptimState::requireLib() const
{
    if (!isLibLoaded())
        QX_RAISE("optimstate", "Internal_error_optim");
}

// --- Workspaces ---------------------------------------------------------------------------------------------------------

/// Exchanges a workspace for one of another length; the old one stays if there is no memory for it.
template <class T>
void OptimState::replace(Array<T, 1>& workspace, int length, T fill) const
try {
    if (length < 0)
        QX_RAISE("optimstate", "Internal_error_optim");
    Array<T, 1> fresh(static_cast<unsigned long>(length));
    const unsigned long kept = std::min(workspace.size(), fresh.size());
    std::copy_n(workspace.data(), kept, fresh.data());
    std::fill(fresh.data() + kept, fresh.data() + fresh.size(), fill);
    workspace.swap(fresh);
} catch (const std::bad_alloc&) {
    QX_RAISE("optimstate", qxoptim::outOfMemoryId(np_));
}

void OptimState::reallocate(int cw, int iw, int rw)
{
    Array<char, 1> newCw;
    Array<int, 1> newIw;
    replace(newCw, cw, ' ');
    replace(newIw, iw, 0);
    replace(rw_, rw, 0.0); // the last that can fail
    std::copy_n(cw_.data(), std::min(cw_.size(), newCw.size()), newCw.data());
    std::copy_n(iw_.data(), std::min(iw_.size(), newIw.size()), newIw.data());
    cw_.swap(newCw);
    iw_.swap(newIw);
}

void OptimState::reallocateCw(int cw) { replace(cw_, cw, ' '); }
void OptimState::reallocateIw(int iw) { replace(iw_, iw, 0); }
void OptimState::reallocateRw(int rw) { replace(rw_, rw, 0.0); }

void OptimState::reserve(int cw, int iw, int rw)
{
    if (cw > getCwBytes() || iw > getIwLength() || rw > getRwLength())
        reallocate(std::max(cw, getCwBytes()), std::max(iw, getIwLength()), std::max(rw, getRwLength()));
}

// --- Options ------------------------------------------------------------------------------------------------------------

bool OptimState::isInitialised() const { return initLib_ && initLib_ == getOptlib(); }

void OptimState::init()
{
    requireLib();
    const boost::shared_ptr<qxbase::QxLib> lib = getOptlib();
    const auto entry = np_ ? QX_OPTIM_ENTRY(lib, qxsninit) : QX_OPTIM_ENTRY(lib, qxsqinit);
    reserve(8 * qxoptim::kLeastWords, qxoptim::kLeastWords, qxoptim::kLeastWords);
    const int print = 0, summary = 0, lencw = getCwLength(), leniw = getIwLength(), lenrw = getRwLength();
    entry(&print, &summary, getCw(), &lencw, getIw(), &leniw, getRw(), &lenrw, qxoptim::kWordLength);
    initLib_ = lib;
    if (userRealCount_ > 0)
        seti("User real workspace", userRealCount_ + kUserSlack);
    if (userIntCount_ > 0)
        seti("User integer workspace", userIntCount_ + kUserSlack);
}

/// The call that all three kinds of option share: text, value if there is one, print units, workspaces, lengths.
template <class Entry, class... Value>
void OptimState::send(Entry* entry, const std::string& text, const Value*... value)
{
    const int print = printLib_ ? kPrintUnit : 0, summary = 0;
    const int lencw = getCwLength(), leniw = getIwLength(), lenrw = getRwLength();
    int errors = 0;
    entry(text.c_str(), value..., &print, &summary, &errors, getCw(), &lencw, getIw(), &leniw, getRw(), &lenrw,
          text.size(), qxoptim::kWordLength);
}

void OptimState::seti(const std::string& word, int value)
{
    requireLib();
    const auto lib = getOptlib();
    send(np_ ? QX_OPTIM_ENTRY(lib, qxsnseti) : QX_OPTIM_ENTRY(lib, qxsqseti), word, &value);
}

void OptimState::setr(const std::string& word, double value)
{
    requireLib();
    const auto lib = getOptlib();
    send(np_ ? QX_OPTIM_ENTRY(lib, qxsnsetr) : QX_OPTIM_ENTRY(lib, qxsqsetr), word, &value);
}

void OptimState::set(const std::string& line)
{
    requireLib();
    const auto lib = getOptlib();
    send(np_ ? QX_OPTIM_ENTRY(lib, qxsnset) : QX_OPTIM_ENTRY(lib, qxsqset), line);
}

void OptimState::setPrintFile(const std::string& name)
{
    requireLib();
    closePrintFile();
    const boost::shared_ptr<qxbase::QxLib> lib = getOptlib();
    int inform = 0;
    QX_OPTIM_ENTRY(lib, qxsnopenappend)(&kPrintUnit, name.c_str(), &inform, name.size());
    if (inform != 0)
        QX_RAISE("optimstate", "Internal_error_optim", "File", name);
    printLib_ = lib;
    seti("Print file", kPrintUnit);
}

void OptimState::closePrintFile()
{
    if (!printLib_)
        return;
    boost::shared_ptr<qxbase::QxLib> lib;
    lib.swap(printLib_);
    if (isInitialised())
        seti("Print file", 0);
    QX_OPTIM_ENTRY(lib, qxsnclose)(&kPrintUnit);
}

// --- Properties ---------------------------------------------------------------------------------------------------------

namespace {

bool isOf(const Option& option, Home group)
{
    return option.home == group || (option.home == Home::Each && group != Home::Common);
}

} // namespace

void OptimState::checkGroups(Prop& prop, std::initializer_list<Home> groups)
{
    Prop checked = prop; // all or nothing
    for (const Home group : groups)
        for (const Option& option : qxoptim::optionTable())
            if (isOf(option, group))
                checked.check(option.property);
    checked.assertChecked();
    prop = std::move(checked);
}

void OptimState::checkCommon(Prop& prop) { checkGroups(prop, {Home::Common}); }

void OptimState::checkNP(Prop& prop) { checkGroups(prop, {Home::Common, Home::Nonlinear}); }

void OptimState::checkQP(Prop& prop) { checkGroups(prop, {Home::Common, Home::Quadratic}); }

bool OptimState::isIntOption(const std::string& name)
{
    const Option* option = qxoptim::findOption(name);
    return option != nullptr && option->kind == Kind::Integer;
}

bool OptimState::isDoubleOption(const std::string& name)
{
    const Option* option = qxoptim::findOption(name);
    return option != nullptr && option->kind == Kind::Real;
}

/// Options that are no pair of word and number: a line for each value, or something that stays on this side.
void OptimState::sendOwn(const Prop& prop, const std::string& property)
{
    if (property == "print") // opened before all others
        return;
    if (property == "stop") {
        stop_ = prop.getInt(property);
        return;
    }
    const Option& option = *qxoptim::findOption(property);
    std::string value;
    if (option.rule == RuleType::Index) {
        const auto index = static_cast<std::size_t>(prop.getInt(property));
        if (index >= option.choices.size())
            QX_RAISE("optimstate", "Internal_error_optim");
        value = option.choices[index].first;
    } else {
        value = prop.getString(property);
    }
    for (const qxoptim::OptionLine& line : qxoptim::optionLines())
        if (property == line.property && value == line.value)
            set(line.line);
}

void OptimState::sendGroup(const Prop& prop, Home group)
{
    for (const Option& option : qxoptim::optionTable()) {
        if (!isOf(option, group) || !prop.got(option.property))
            continue;
        const char* word = group == Home::Nonlinear ? option.nonlinearWord : option.word;
        switch (option.kind) {
        case Kind::Integer: seti(word, prop.getInt(option.property)); break;
        case Kind::Real: setr(word, prop.getDouble(option.property)); break;
        case Kind::Own: sendOwn(prop, option.property); break;
        }
    }
}

void OptimState::setCommonOptions(const Prop& prop)
{
    requireLib();
    if (prop.got("print"))
        setPrintFile(prop.getString("print"));
    sendGroup(prop, Home::Common);
}

void OptimState::setNPOptions(const Prop& prop)
{
    setCommonOptions(prop);
    sendGroup(prop, Home::Nonlinear);
}

void OptimState::setQPOptions(const Prop& prop)
{
    setCommonOptions(prop);
    sendGroup(prop, Home::Quadratic);
}
