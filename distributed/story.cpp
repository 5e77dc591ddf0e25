// SPDX-License-Identifier: LicenseRef-qxkernel
#include "story_detail.hpp"

#include <charconv>
#include <new>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {
namespace detail {
namespace {

/// The story of exhausted memory needs none.
constexpr const char* kNoMemory = "0 1 11:distributed1:021:Out_of_memory_on_rank1:0";

void put(std::string& to, const std::string& text)
{
    to += std::to_string(text.size());
    to += ':';
    to += text;
}

void putEntries(std::string& to, const qxbase::Exception& e, bool cancel)
{
    to += cancel ? "1 " : "0 ";
    to += std::to_string(e.size()) + ' ';
    for (std::size_t i = 0; i < e.size(); ++i) {
        put(to, e.getFile(i));
        put(to, std::to_string(e.getLine(i)));
        put(to, e.getId(i));
        put(to, std::to_string(e.getArgs(i).size()));
        for (const auto& [key, value] : e.getArgs(i)) {
            put(to, key);
            put(to, value);
        }
    }
}

qxbase::Exception foreign(const std::string& reason)
{
    return {"distributed", __LINE__, "Exception_on_rank", "Reason", reason};
}

/// Reads what was put.
class Reader
{
public:
    explicit Reader(const std::string& bytes) : at_(bytes.data()), end_(bytes.data() + bytes.size()) {}

    long number()
    {
        long n = 0;
        at_ = std::from_chars(at_, end_, n).ptr + 1; // and what parts it from the next
        return n;
    }
    std::string text()
    {
        const auto length = static_cast<std::size_t>(number());
        const std::string t(at_, length);
        at_ += length;
        return t;
    }
    int numberAsText() { return std::stoi(text()); }

private:
    const char* at_;
    const char* end_;
};

} // namespace

std::string packed(const std::exception_ptr& failure) noexcept
{
    try {
        std::string bytes;
        try {
            std::rethrow_exception(failure);
        } catch (const qxbase::CancelException& e) {
            putEntries(bytes, e, true);
        } catch (const qxbase::Exception& e) {
            putEntries(bytes, e, false);
        } catch (const std::bad_alloc&) {
            return kNoMemory;
        } catch (const std::exception& e) {
            putEntries(bytes, foreign(e.what()), false);
        } catch (...) {
            putEntries(bytes, foreign("unknown"), false);
        }
        return bytes;
    } catch (...) {
        return {}; // not even the story has room: raisePacked knows
    }
}

void raisePacked(const std::string& given, int rank)
{
    const std::string bytes = given.empty() ? kNoMemory : given;
    Reader reader(bytes);
    const bool cancel = reader.number() != 0;
    const long entries = reader.number();
    qxbase::Exception story;
    qxbase::CancelException stopped;
    qxbase::Exception& told = cancel ? stopped : story;
    for (long i = 0; i < entries; ++i) {
        const std::string file = reader.text();
        const int line = reader.numberAsText();
        const std::string id = reader.text();
        qxbase::ExceptionArgs args(static_cast<std::size_t>(reader.numberAsText()));
        for (auto& [key, value] : args) {
            key = reader.text();
            value = reader.text();
        }
        told.add(file, line, id, args);
    }
    if (told.size() == 0 || told.getId(told.size() - 1) != "Failed_on_rank") // an agreement inside another has told
        told.add("distributed", __LINE__, "Failed_on_rank", {{"Rank", std::to_string(rank)}});
    if (cancel)
        throw stopped;
    throw story;
}

std::string storyOf(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const qxbase::Exception& e) {
        return e.toString();
    } catch (const std::exception& e) {
        return std::string(e.what()) + '\n';
    } catch (...) {
        return "unknown\n";
    }
}

} // namespace detail
} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed
