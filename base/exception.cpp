// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxexception.hpp"

#include <exception>

namespace qxbase {

namespace {

template <class N>
ExceptionArgs numbersToText(const std::vector<std::pair<std::string, N>>& args)
{
    ExceptionArgs text;
    text.reserve(args.size());
    for (const auto& [key, value] : args)
        text.emplace_back(key, std::to_string(value));
    return text;
}

} // namespace

Exception::Exception() = default;
Exception::Exception(const Exception&) = default;
Exception::Exception(Exception&&) noexcept = default;
Exception& Exception::operator=(const Exception&) = default;
Exception& Exception::operator=(Exception&&) noexcept = default;
Exception::~Exception() = default;

Exception::Exception(const std::string& file, int line, const std::string& id) { add(file, line, id); }

Exception::Exception(const std::string& file, int line, const std::string& id, const std::string& arg)
{
    add(file, line, id, {{arg, ""}});
}

Exception::Exception(const std::string& file, int line, const std::string& id, const std::string& key,
                     const std::string& value)
{
    add(file, line, id, {{key, value}});
}

Exception::Exception(const std::string& file, int line, const std::string& id, const std::string& key, int value)
{
    add(file, line, id, {{key, std::to_string(value)}});
}

Exception::Exception(const std::string& file, int line, const std::string& id, const std::string& key, long value)
{
    add(file, line, id, {{key, std::to_string(value)}});
}

Exception::Exception(const std::string& file, int line, const std::string& id, const std::string& key,
                     unsigned long value)
{
    add(file, line, id, {{key, std::to_string(value)}});
}

Exception::Exception(const std::string& file, int line, const std::string& id, const ExceptionArgs& args)
{
    add(file, line, id, args);
}

Exception::Exception(const std::string& file, int line, const std::string& id,
                     const std::vector<std::pair<std::string, int>>& args)
{
    add(file, line, id, numbersToText(args));
}

void Exception::add(const std::string& file, int line, const std::string& id, const ExceptionArgs& args)
{
    entries_.push_back({file, line, id, args});
}

void Exception::add(const std::string& file, int line, const std::string& id,
                    const std::vector<std::pair<std::string, int>>& args)
{
    add(file, line, id, numbersToText(args));
}

std::string Exception::toString() const
{
    std::string text;
    for (const Entry& e : entries_) {
        text += e.file + ":" + std::to_string(e.line) + " " + e.id;
        const char* separator = " (";
        for (const auto& [key, value] : e.args) {
            text += separator + key;
            if (!value.empty())
                text += " = " + value;
            separator = ", ";
        }
        if (!e.args.empty())
            text += ")";
        text += "\n";
    }
    return text;
}

CancelException::CancelException() = default;
CancelException::CancelException(const std::string& file, int line) : Exception(file, line, "Cancelled") {}

void ParallelException::storeException(const Exception& e) noexcept
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (first_)
        return;
    if (const auto* cancel = dynamic_cast<const CancelException*>(&e))
        first_ = std::make_exception_ptr(*cancel);
    else
        first_ = std::make_exception_ptr(e);
}

void ParallelException::storeCurrent() noexcept
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (!first_)
        first_ = std::current_exception();
}

bool ParallelException::isStored() const noexcept
{
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<bool>(first_);
}

void ParallelException::throwException()
{
    std::exception_ptr first;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        first = first_;
    }
    if (first)
        std::rethrow_exception(first);
}

} // namespace qxbase
