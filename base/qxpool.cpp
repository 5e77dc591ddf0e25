// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxpool.hpp"

#include "qxexception.hpp"

QxStringPool::QxStringPool(const QxStringPool& other) { *this = other; }

QxStringPool& QxStringPool::operator=(const QxStringPool& other)
{
    if (this == &other)
        return *this;
    std::deque<std::string> texts(other.texts_);
    QxHashMap<int, std::string_view> handles(static_cast<unsigned>(texts.size()), true);
    for (int i = 0; i < static_cast<int>(texts.size()); ++i)
        handles.insert(texts[i], i);
    texts_.swap(texts);
    std::swap(handles_, handles);
    return *this;
}

int QxStringPool::getHandle(std::string_view text)
{
    if (const QxHashLookup known = handles_.lookup(text); !known.notFound)
        return handles_.at(known.slot);
    const int handle = size();
    texts_.emplace_back(text);
    try {
        handles_.insert(texts_.back(), handle);
    } catch (...) {
        texts_.pop_back();
        throw;
    }
    return handle;
}

const std::string& QxStringPool::getString(int handle) const
{
    if (handle < 0 || handle >= size())
        QX_RAISE("qxpool", "Internal_error_string_pool", "Handle", handle);
    return texts_[static_cast<std::size_t>(handle)];
}
