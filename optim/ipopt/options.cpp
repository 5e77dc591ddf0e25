// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/ipopt/options.hpp"

#include "optim/optiontable_detail.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <vector>

namespace {

constexpr int kLeastWords = 500;
constexpr int kFirstSlot = 50; // below, the optimizer of old keeps what callers may look at
constexpr int kMagic[] = {0x51584970, 0x6f707431};
constexpr int kMinorIterations = 420, kMajorIterations = 421;

/// Small letters, single blanks, none at the ends.
std::string normalised(std::string_view text)
{
    std::string out;
    for (const char c : text) {
        const auto letter = static_cast<unsigned char>(c);
        if (std::isspace(letter) == 0)
            out += static_cast<char>(std::tolower(letter));
        else if (!out.empty() && out.back() != ' ')
            out += ' ';
    }
    if (!out.empty() && out.back() == ' ')
        out.pop_back();
    return out;
}

/// The words that have a slot: those of the option table, those that the driver adds, and the properties behind lines.
const std::vector<std::string>& words()
{
    static const std::vector<std::string> list = [] {
        std::vector<std::string> all = {"derivative option", "print file", "user real workspace", "user integer workspace"};
        const auto add = [&](const char* word) {
            if (word != nullptr && std::find(all.begin(), all.end(), normalised(word)) == all.end())
                all.push_back(normalised(word));
        };
        for (const qxoptim::Option& option : qxoptim::optionTable()) {
            add(option.word);
            add(option.nonlinearWord);
        }
        for (const qxoptim::OptionLine& line : qxoptim::optionLines())
            add(line.property);
        return all;
    }();
    return list;
}

/// The slot of a word, or -1.
int slotOf(std::string_view word)
{
    const auto found = std::find(words().begin(), words().end(), normalised(word));
    return found == words().end() ? -1 : static_cast<int>(found - words().begin());
}

} // namespace

OptionStore::OptionStore(char* /*cw*/, const int* lencw, int* iw, const int* leniw, double* rw, const int* lenrw)
    : lencw_(*lencw), leniw_(*leniw), lenrw_(*lenrw), iw_(iw), rw_(rw)
{
}

int OptionStore::storageExit() const
{
    const bool cw = lencw_ < kLeastWords, iw = leniw_ < kLeastWords, rw = lenrw_ < kLeastWords;
    if (cw + iw + rw > 1)
        return 81;
    return cw ? 82 : iw ? 83 : rw ? 84 : 0;
}

void OptionStore::initialise()
{
    std::fill(iw_, iw_ + kLeastWords, 0);
    std::fill(rw_, rw_ + kLeastWords, 0.0);
    iw_[0] = kMagic[0];
    iw_[1] = kMagic[1];
}

bool OptionStore::isInitialised() const { return iw_[0] == kMagic[0] && iw_[1] == kMagic[1]; }

bool OptionStore::setInteger(std::string_view word, int value) { return setReal(word, value); }

bool OptionStore::setReal(std::string_view word, double value)
{
    const int slot = slotOf(word);
    if (slot < 0)
        return false;
    iw_[kFirstSlot + slot] = 1;
    rw_[kFirstSlot + slot] = value;
    return true;
}

bool OptionStore::setLine(std::string_view line)
{
    const std::string wanted = normalised(line);
    int index = 0;
    for (const qxoptim::OptionLine& known : qxoptim::optionLines()) {
        if (wanted == normalised(known.line))
            return setInteger(known.property, index);
        ++index;
    }
    // A word with its value behind it.
    const std::size_t blank = wanted.find_last_of(' ');
    if (blank == std::string::npos)
        return false;
    char* end = nullptr;
    const double value = std::strtod(wanted.c_str() + blank, &end);
    return *end == '\0' && setReal(wanted.substr(0, blank), value);
}

bool OptionStore::isSet(std::string_view word) const
{
    const int slot = slotOf(word);
    return slot >= 0 && iw_[kFirstSlot + slot] != 0;
}

double OptionStore::real(std::string_view word, double fallback) const
{
    return isSet(word) ? rw_[kFirstSlot + slotOf(word)] : fallback;
}

int OptionStore::integer(std::string_view word, int fallback) const
{
    const double value = real(word, fallback);
    constexpr double most = std::numeric_limits<int>::max();
    return std::isnan(value) ? fallback : static_cast<int>(std::clamp(value, -most, most));
}

bool OptionStore::lineIs(std::string_view property, std::string_view value) const
{
    const int index = integer(property, -1);
    return index >= 0 && qxoptim::optionLines()[static_cast<std::size_t>(index)].value == value;
}

void OptionStore::setIterations(int count)
{
    iw_[kMinorIterations] = count;
    iw_[kMajorIterations] = count;
}

int* OptionStore::adrMajorIterations() { return iw_ + kMajorIterations; }
