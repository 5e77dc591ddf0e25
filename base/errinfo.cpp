#include "errinfo.hpp"

void ErrInfo::newLine(const std::string& file, int number)
{
    lines_.push_back(std::make_shared<Line>(Line{file, number, {}}));
}

std::string& ErrInfo::operator[](const std::string& key)
{
    if (lines_.empty())
        newLine("", 0);
    if (lines_.back().use_count() > 1)
        lines_.back() = std::make_shared<Line>(*lines_.back());
    auto& values = lines_.back()->values;
    for (auto& [k, value] : values)
        if (k == key)
            return value;
    return values.emplace_back(key, "").second;
}

void ErrInfo::append(const ErrInfo& other)
{
    const std::size_t count = other.lines_.size(); // other may be this
    lines_.reserve(lines_.size() + count);
    for (std::size_t i = 0; i < count; ++i)
        lines_.push_back(other.lines_[i]);
}

std::string ErrInfo::get(std::size_t i, const std::string& key) const
{
    for (const auto& [k, value] : lines_.at(i)->values)
        if (k == key)
            return value;
    return {};
}

qxbase::Exception ErrInfo::makeException() const
{
    qxbase::Exception e;
    for (const std::shared_ptr<Line>& shared : lines_) {
        const Line& line = *shared;
        std::string id = "Unexpected_NaN";
        qxbase::ExceptionArgs args;
        for (const auto& entry : line.values) {
            if (entry.first == "message")
                id = entry.second;
            else
                args.push_back(entry);
        }
        e.add(line.file, line.number, id, args);
    }
    return e;
}
