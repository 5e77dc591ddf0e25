// SPDX-License-Identifier: LicenseRef-qxkernel
#include "errinfo.hpp"

#include <stdexcept>

/// Ends the lines before this one that nobody else refers to, one by one: a record may have any number.
ErrInfo::Line::~Line()
{
    std::shared_ptr<Line> next = std::move(before);
    while (next && next.use_count() == 1)
        next = std::shared_ptr<Line>(std::move(next->before));
}

const ErrInfo::Line& ErrInfo::line(std::size_t i) const
{
    if (i >= size())
        throw std::out_of_range("ErrInfo");
    const Line* found = last_.get();
    while (found->count != i + 1)
        found = found->before.get();
    return *found;
}

/// All lines in order.
std::vector<const ErrInfo::Line*> ErrInfo::lines() const
{
    std::vector<const Line*> all(size());
    std::size_t i = all.size();
    for (const Line* one = last_.get(); one != nullptr; one = one->before.get())
        all[--i] = one;
    return all;
}

void ErrInfo::newLine(const std::string& file, int number)
{
    last_ = std::make_shared<Line>(last_, file, number);
}

std::string& ErrInfo::operator[](const std::string& key)
{
    if (!last_)
        newLine("", 0);
    if (last_.use_count() > 1)
        last_ = std::make_shared<Line>(*last_);
    auto& values = last_->values;
    for (auto& [k, value] : values)
        if (k == key)
            return value;
    return values.emplace_back(key, "").second;
}

void ErrInfo::append(const ErrInfo& other)
{
    if (!last_) {
        last_ = other.last_;
        return;
    }
    std::shared_ptr<Line> last = last_;
    for (const Line* const from : other.lines()) {
        const auto copy = std::make_shared<Line>(last, from->file, from->number);
        copy->values = from->values;
        last = copy;
    }
    last_.swap(last);
}

std::string ErrInfo::get(std::size_t i, const std::string& key) const
{
    for (const auto& [k, value] : line(i).values)
        if (k == key)
            return value;
    return {};
}

qxbase::Exception ErrInfo::makeException() const
{
    qxbase::Exception e;
    for (const Line* const line : lines()) {
        std::string id = "Unexpected_NaN";
        qxbase::ExceptionArgs args;
        for (const auto& entry : line->values) {
            if (entry.first == "message")
                id = entry.second;
            else
                args.push_back(entry);
        }
        e.add(line->file, line->number, id, args);
    }
    return e;
}
