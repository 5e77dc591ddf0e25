// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexception.hpp"
#include "qxexport.hpp"

#include <boost/any.hpp>
#include <boost/core/demangle.hpp>
#include <boost/shared_ptr.hpp>

#include <map>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace qxbase {

/// Rule for the value of one property: the type it must have, what is allowed, the default.
///
/// Raises "Invalid_property_type" ("Property", "Type") for a value of another type and "Invalid_property_value"
/// ("Property", "Value", "Allowed") for one outside the allowed set. Immutable and shared between threads.
class QX_API Check
{
public:
    virtual ~Check();
    /// The value in the form that the reader of the property expects.
    virtual boost::any convert(const std::string& key, const boost::any& value) const = 0;
    /// The value for an absent property; empty when there is none.
    virtual boost::any getDefault() const { return {}; }
};

/// lo <= value <= hi, stored as int. Takes int, and long or double of whole value.
class QX_API ChkIntInterval : public Check
{
public:
    ChkIntInterval(int lo, int hi) : lo_(lo), hi_(hi) {}
    ChkIntInterval(int defaultValue, int lo, int hi) : lo_(lo), hi_(hi), default_(defaultValue) {}
    boost::any convert(const std::string& key, const boost::any& value) const override;
    boost::any getDefault() const override { return default_; }

private:
    int lo_, hi_;
    boost::any default_;
};

/// lo <= value <= hi, stored as double; NaN is refused. Takes double, int and long.
class QX_API ChkDoubleInterval : public Check
{
public:
    ChkDoubleInterval(double lo, double hi) : lo_(lo), hi_(hi) {}
    ChkDoubleInterval(double defaultValue, double lo, double hi) : lo_(lo), hi_(hi), default_(defaultValue) {}
    boost::any convert(const std::string& key, const boost::any& value) const override;
    boost::any getDefault() const override { return default_; }

protected:
    virtual bool isInside(double value) const { return value >= lo_ && value <= hi_; }
    virtual std::string allowed() const;

    double lo_, hi_;

private:
    boost::any default_;
};

/// lo < value < hi, otherwise as ChkDoubleInterval.
class QX_API ChkDoubleOpenInterval : public ChkDoubleInterval
{
public:
    using ChkDoubleInterval::ChkDoubleInterval;

protected:
    bool isInside(double value) const override { return value > lo_ && value < hi_; }
    std::string allowed() const override;
};

/// A text out of a list of values, each with a description for dialogs; without a list, any text.
class QX_API ChkString : public Check
{
public:
    using Choices = std::vector<std::pair<std::string, std::string>>;

    /// Any text, no default.
    ChkString() = default;
    /// One of values, no default.
    explicit ChkString(const std::vector<std::string>& values);
    ChkString(const std::string& defaultValue, const Choices& choices);
    /// count pairs of value and description: ChkString("on", 2, "on", "On", "off", "Off").
    template <class... Text>
    ChkString(const std::string& defaultValue, int count, const Text&... texts)
        : ChkString(defaultValue, pairUp(count, {std::string(texts)...}))
    {
    }
    boost::any convert(const std::string& key, const boost::any& value) const override;
    boost::any getDefault() const override { return default_; }
    const Choices& getChoices() const { return choices_; }

protected:
    /// Position of the value in the list; raises when it is not there.
    int indexOf(const std::string& key, const std::string& value) const;
    static Choices pairUp(int count, const std::vector<std::string>& texts);

private:
    Choices choices_;
    boost::any default_;
};

/// As ChkString with a list; the text is turned into its index in the list, an int. Takes the index as well.
class QX_API ChkStringToIndex : public ChkString
{
public:
    using ChkString::ChkString;
    boost::any convert(const std::string& key, const boost::any& value) const override;
    boost::any getDefault() const override;
};

/// A list of texts; a single text is a list of one.
class QX_API ChkVectorString : public Check
{
public:
    boost::any convert(const std::string& key, const boost::any& value) const override;
};

/// mkVecStr(2, "a", "b"): a vector of count texts.
template <class... Text>
std::vector<std::string> mkVecStr(int count, const Text&... texts)
{
    if (count != static_cast<int>(sizeof...(texts)))
        QX_RAISE("prop", "Internal_error_property_processing", "mkVecStr", count);
    return {std::string(texts)...};
}

/// A list of properties: values of any type under text keys, with checks that convert them and supply defaults.
///
/// The list is filled, then check is called for every key that its reader knows, then assertChecked finds what the
/// reader does not know. Plain value: copies are independent. Threads: a list belongs to one thread; the global checks
/// are shared by all and guarded.
class QX_API Prop
{
public:
    /// Whether the list holds a value for key, given or supplied as a default by check.
    bool got(const std::string& key) const;

    /// The value of key as T. Raises "Internal_error_property_processing" with one text as its argument when the
    /// property is missing or has another type.
    template <class T>
    const T& get(const std::string& key) const
    {
        const boost::any& value = getAny(key);
        if (const T* typed = boost::any_cast<T>(&value))
            return *typed;
        raiseType(key, boost::core::demangle(typeid(T).name()));
    }

    int getInt(const std::string& key) const { return get<int>(key); }
    /// Takes a property that holds an int as well.
    double getDouble(const std::string& key) const;
    const std::string& getString(const std::string& key) const { return get<std::string>(key); }
    const boost::any& getAny(const std::string& key) const;

    /// A new value has to be checked again.
    void setInt(const std::string& key, int value) { setany(key, value); }
    void setDouble(const std::string& key, double value) { setany(key, value); }
    void setString(const std::string& key, const std::string& value) { setany(key, value); }
    void setany(const std::string& key, const boost::any& value);

    /// The rule for key in this list; it goes before the global one. check is kept.
    void setCheck(const std::string& key, const boost::shared_ptr<const Check>& check);
    /// The rule for key in all lists; replaces an earlier one. check is kept for the life of the process.
    static void setCheckGlobal(const std::string& key, const boost::shared_ptr<const Check>& check);

    /// Checks and converts the value of key; an absent one gets the rule's default. Without a value and a default:
    /// "Property_is_missing" ("Property") if required, else nothing. A key without a rule takes any value. When it
    /// raises, the value is as it was.
    void check(const std::string& key, bool required = false);
    /// Raises "Unknown_property" ("Property") for the first key that has not been checked since it was set.
    void assertChecked() const;

    /// All keys that hold a value, in alphabetical order.
    std::vector<std::string> getKeys() const;

private:
    struct Entry
    {
        boost::any value;
        bool checked;
    };

    [[noreturn]] static void raiseType(const std::string& key, const std::string& type);

    std::map<std::string, Entry> entries_;
    std::map<std::string, boost::shared_ptr<const Check>> checks_;
};

} // namespace qxbase
