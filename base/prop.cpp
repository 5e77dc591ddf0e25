// SPDX-License-Identifier: LicenseRef-qxkernel
#include "prop.hpp"

#include "qxnumber.hpp"

#include <cmath>
#include <limits>
#include <mutex>
#include <optional>

namespace qxbase {

namespace {

[[noreturn]] void raiseValue(const std::string& key, const std::string& value, const std::string& allowed)
{
    QX_RAISE("prop", "Invalid_property_value",
             ExceptionArgs{{"Property", key}, {"Value", value}, {"Allowed", allowed}});
}

[[noreturn]] void raiseValueType(const std::string& key, const boost::any& value)
{
    QX_RAISE("prop", "Invalid_property_type",
             ExceptionArgs{{"Property", key}, {"Type", boost::core::demangle(value.type().name())}});
}

/// The number in value, whatever arithmetic type it has; an int is exact in a double.
double numberOf(const std::string& key, const boost::any& value)
{
    if (const auto* i = boost::any_cast<int>(&value))
        return *i;
    if (const auto* d = boost::any_cast<double>(&value))
        return *d;
    if (const auto* l = boost::any_cast<long>(&value))
        return static_cast<double>(*l);
    raiseValueType(key, value);
}

std::optional<std::string> textOf(const boost::any& value)
{
    if (const auto* s = boost::any_cast<std::string>(&value))
        return *s;
    if (const auto* c = boost::any_cast<const char*>(&value))
        return std::string(*c);
    return {};
}

std::string interval(char open, double lo, double hi, char close)
{
    return open + qxutil::toString(lo) + ", " + qxutil::toString(hi) + close;
}

struct GlobalChecks
{
    std::mutex mutex;
    std::map<std::string, boost::shared_ptr<const Check>> checks;
};

GlobalChecks& globalChecks()
{
    static GlobalChecks& instance = *new GlobalChecks; // for the life of the process: static destructors may use lists
    return instance;
}

} // namespace

Check::~Check() = default;

boost::any ChkIntInterval::convert(const std::string& key, const boost::any& value) const
{
    const double number = numberOf(key, value);
    if (!(number >= lo_ && number <= hi_ && number == std::floor(number)))
        raiseValue(key, qxutil::toString(number), interval('[', lo_, hi_, ']'));
    return static_cast<int>(number);
}

boost::any ChkDoubleInterval::convert(const std::string& key, const boost::any& value) const
{
    const double number = numberOf(key, value);
    if (!isInside(number))
        raiseValue(key, qxutil::toString(number), allowed());
    return number;
}

std::string ChkDoubleInterval::allowed() const { return interval('[', lo_, hi_, ']'); }

std::string ChkDoubleOpenInterval::allowed() const { return interval('(', lo_, hi_, ')'); }

ChkString::ChkString(const std::vector<std::string>& values)
{
    for (const std::string& value : values)
        choices_.emplace_back(value, "");
}

ChkString::ChkString(const std::string& defaultValue, const Choices& choices)
    : choices_(choices), default_(defaultValue)
{
}

ChkString::Choices ChkString::pairUp(int count, const std::vector<std::string>& texts)
{
    if (count < 0 || texts.size() != 2 * static_cast<std::size_t>(count))
        QX_RAISE("prop", "Internal_error_property_processing", "ChkString", count);
    Choices choices;
    for (std::size_t i = 0; i < texts.size(); i += 2)
        choices.emplace_back(texts[i], texts[i + 1]);
    return choices;
}

int ChkString::indexOf(const std::string& key, const std::string& value) const
{
    std::string allowed;
    for (std::size_t i = 0; i < choices_.size(); ++i) {
        if (choices_[i].first == value)
            return static_cast<int>(i);
        allowed += (i > 0 ? ", " : "") + choices_[i].first;
    }
    raiseValue(key, value, allowed);
}

boost::any ChkString::convert(const std::string& key, const boost::any& value) const
{
    const std::optional<std::string> text = textOf(value);
    if (!text)
        raiseValueType(key, value);
    if (!choices_.empty())
        indexOf(key, *text);
    return *text;
}

boost::any ChkStringToIndex::convert(const std::string& key, const boost::any& value) const
{
    if (const std::optional<std::string> text = textOf(value))
        return indexOf(key, *text);
    const int last = static_cast<int>(getChoices().size()) - 1;
    return ChkIntInterval(0, last).convert(key, value);
}

boost::any ChkStringToIndex::getDefault() const
{
    const boost::any text = ChkString::getDefault();
    return text.empty() ? text : convert("default", text);
}

boost::any ChkVectorString::convert(const std::string& key, const boost::any& value) const
{
    if (boost::any_cast<std::vector<std::string>>(&value))
        return value;
    if (const std::optional<std::string> text = textOf(value))
        return std::vector<std::string>{*text};
    raiseValueType(key, value);
}

bool Prop::got(const std::string& key) const { return entries_.count(key) != 0; }

const boost::any& Prop::getAny(const std::string& key) const
{
    const auto found = entries_.find(key);
    if (found == entries_.end())
        QX_RAISE("prop", "Internal_error_property_processing", "get<>: Property \"" + key + "\" is not set");
    return found->second.value;
}

double Prop::getDouble(const std::string& key) const
{
    if (const int* whole = boost::any_cast<int>(&getAny(key)))
        return *whole;
    return get<double>(key);
}

void Prop::raiseType(const std::string& key, const std::string& type)
{
    QX_RAISE("prop", "Internal_error_property_processing",
             "get<>: Property \"" + key + "\" does not have type " + type);
}

void Prop::setany(const std::string& key, const boost::any& value)
{
    Entry entry{value, false};
    std::swap(entries_[key], entry);
}

void Prop::setCheck(const std::string& key, const boost::shared_ptr<const Check>& check) { checks_[key] = check; }

void Prop::setCheckGlobal(const std::string& key, const boost::shared_ptr<const Check>& check)
{
    GlobalChecks& global = globalChecks();
    const std::lock_guard lock(global.mutex);
    global.checks[key] = check;
}

void Prop::check(const std::string& key, bool required)
{
    boost::shared_ptr<const Check> rule;
    if (const auto own = checks_.find(key); own != checks_.end()) {
        rule = own->second;
    } else {
        GlobalChecks& global = globalChecks();
        const std::lock_guard lock(global.mutex);
        if (const auto shared = global.checks.find(key); shared != global.checks.end())
            rule = shared->second;
    }

    const auto found = entries_.find(key);
    if (found != entries_.end()) {
        if (rule)
            found->second.value = rule->convert(key, found->second.value);
        found->second.checked = true;
        return;
    }
    boost::any fallback = rule ? rule->getDefault() : boost::any();
    if (!fallback.empty())
        entries_.emplace(key, Entry{std::move(fallback), true});
    else if (required)
        QX_RAISE("prop", "Property_is_missing", "Property", key);
}

void Prop::assertChecked() const
{
    for (const auto& [key, entry] : entries_)
        if (!entry.checked)
            QX_RAISE("prop", "Unknown_property", "Property", key);
}

std::vector<std::string> Prop::getKeys() const
{
    std::vector<std::string> keys;
    for (const auto& entry : entries_)
        keys.push_back(entry.first);
    return keys;
}

} // namespace qxbase
