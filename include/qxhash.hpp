// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <bit>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

/// Hash functions of the kernel's tables: all in 32-bit unsigned arithmetic, so they are the same on every machine.
///
/// Keys that QxHashComp takes as equal hash alike: -0.0 hashes as 0.0, and every NaN as one and the same.
struct QxHashFun
{
    /// Integers and enumerations; 64-bit keys are cut to their low 32 bits for the hash (not for the comparison).
    template <class I>
        requires std::is_integral_v<I> || std::is_enum_v<I>
    unsigned operator()(I x) const
    {
        std::uint32_t a = static_cast<std::uint32_t>(x) * 4097u;
        a ^= a >> 22;
        a *= 17u;
        a ^= a >> 9;
        a *= 1025u;
        a ^= a >> 2;
        a *= 129u;
        return (a ^ (a >> 12)) & 0x7fffffffu;
    }

    /// Addresses, by both halves. Text is hashed by content: see std::string_view.
    template <class T>
        requires(!std::is_same_v<std::remove_cv_t<T>, char>)
    unsigned operator()(T* p) const
    {
        const auto address = reinterpret_cast<std::uintptr_t>(p);
        return (*this)(static_cast<std::uint32_t>(address >> 4 ^ address >> 36));
    }

    unsigned operator()(double x) const
    {
        if (x == 0)
            x = 0.0; // -0.0 equals 0.0
        auto bits = std::bit_cast<std::uint64_t>(x);
        if (x != x)
            bits = 0x7ff8000000000000u;
        const auto folded = static_cast<std::uint32_t>(bits) ^ static_cast<std::uint32_t>(bits >> 32);
        std::uint32_t a = folded + ~(folded << 9);
        a = (a ^ shiftSigned(a, 14)) * 17u;
        return magnitude(a ^ shiftSigned(a, 10));
    }

    unsigned operator()(const std::complex<double>& z) const { return combine((*this)(z.real()), (*this)(z.imag())); }

    /// FNV-1a over the bytes, folded.
    unsigned operator()(std::string_view text) const { return bytes(text.data(), text.size()); }
    unsigned operator()(const std::string& text) const { return bytes(text.data(), text.size()); }
    unsigned operator()(const char* text) const { return (*this)(std::string_view(text)); }
    unsigned operator()(const std::vector<unsigned char>& data) const { return bytes(data.data(), data.size()); }

    /// A triple is a pair whose second part is a pair.
    template <class A, class B>
    unsigned operator()(const std::pair<A, B>& p) const
    {
        return combine((*this)(p.first), (*this)(p.second));
    }

    /// The hash of a pair from the hashes of its parts.
    static unsigned combine(unsigned h1, unsigned h2) { return magnitude(h1 * 69069u + h2 * 362437u); }

private:
    static std::uint32_t shiftSigned(std::uint32_t a, int n)
    {
        return static_cast<std::uint32_t>(static_cast<std::int32_t>(a) >> n);
    }

    static std::uint32_t magnitude(std::uint32_t a) { return static_cast<std::int32_t>(a) < 0 ? 0u - a : a; }

    template <class Byte>
    static unsigned bytes(const Byte* data, std::size_t count)
    {
        std::uint32_t h = 0x811c9dc5u;
        for (std::size_t i = 0; i < count; ++i)
            h = (h ^ static_cast<unsigned char>(data[i])) * 16777619u;
        return h ^ (h >> 8) ^ (h >> 16) ^ (h >> 24);
    }
};

/// Equality of keys. Two NaN are equal, alone and as a part of a complex number or a pair.
struct QxHashComp
{
    template <class T>
    bool operator()(const T& a, const T& b) const
    {
        return a == b;
    }
    bool operator()(double a, double b) const { return a == b || (a != a && b != b); }
    bool operator()(const std::complex<double>& a, const std::complex<double>& b) const
    {
        return (*this)(a.real(), b.real()) && (*this)(a.imag(), b.imag());
    }
    template <class A, class B>
    bool operator()(const std::pair<A, B>& a, const std::pair<A, B>& b) const
    {
        return (*this)(a.first, b.first) && (*this)(a.second, b.second);
    }
};

/// Result of a search; one 64-bit register.
struct QxHashLookup
{
    std::uint32_t slot;
    std::uint32_t notFound;
    explicit operator bool() const { return notFound == 0; }
};

/// Result of an insertion; one 64-bit register.
struct QxHashInsert
{
    std::uint32_t slot;
    std::uint32_t inserted;
};

/// Forward iteration over the used slots of a table, in an order that callers must not rely on. `operator->` yields the
/// entry. Any insertion ends the life of all iterators.
template <class Entry>
class QxHashMapIterator
{
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::remove_const_t<Entry>;
    using difference_type = std::ptrdiff_t;
    using pointer = Entry*;
    using reference = Entry&;

    QxHashMapIterator() = default;
    QxHashMapIterator(Entry* at, Entry* end) : at_(at), end_(end) { skipFree(); }

    reference operator*() const { return *at_; }
    pointer operator->() const { return at_; }
    QxHashMapIterator& operator++()
    {
        ++at_;
        skipFree();
        return *this;
    }
    QxHashMapIterator operator++(int)
    {
        QxHashMapIterator before = *this;
        ++*this;
        return before;
    }
    bool operator==(const QxHashMapIterator& other) const { return at_ == other.at_; }

private:
    void skipFree()
    {
        while (at_ != end_ && !at_->used)
            ++at_;
    }

    Entry* at_ = nullptr;
    Entry* end_ = nullptr;
};

namespace qxhash_detail {

/// Open addressing with double hashing on a power-of-two table, shared by map and set:
///
///   start  i = h & mask,   step  i = (i + ((h >> 5) | 1)) & mask     (an odd step visits every slot)
///
/// Load limit 0.72. Slots beyond tableSize, which the vector keeps after clear(), are always free and wiped.
/// Source: Knuth, The Art of Computer Programming 3, section 6.4, algorithm D.
template <class Entry, class K, class H, class C>
class Table
{
public:
    using TableEntry = Entry;
    using iterator = QxHashMapIterator<Entry>;
    using const_iterator = QxHashMapIterator<const Entry>;

    /// Room for size keys. (0, true) allocates nothing until the first insertion.
    Table(unsigned int size, bool lazy) : lazy_(lazy)
    {
        if (size > 0 || !lazy)
            resizeNoRehash(size);
    }

    /// Slots for n keys: 2 for n < 2, else the smallest power of two above floor(1.4 n). n above 1.5e9: std::bad_alloc.
    static unsigned getHashSize(unsigned int n)
    {
        if (n < 2)
            return 2;
        if (n > 1500000000u)
            throw std::bad_alloc();
        return std::uint32_t(1) << std::bit_width(static_cast<std::uint32_t>(1.4 * n));
    }

    QxHashLookup lookup(const K& key) const
    {
        return lookupWith(hash_(key), [&](const K& other) { return equal_(other, key); });
    }

    /// Search without building a key: hash is what H gives for it, isEqual(const K&) tells the wanted one.
    template <class IsEqual>
    QxHashLookup lookupWith(unsigned hash, IsEqual&& isEqual) const
    {
        if (count_ == 0)
            return {0, 1};
        const std::uint32_t step = (hash >> 5) | 1u;
        for (std::uint32_t i = hash & mask_;; i = (i + step) & mask_) {
            const Entry& entry = table_[i];
            if (!entry.used)
                return {i, 1};
            if (isEqual(entry.key))
                return {i, 0};
        }
    }

    bool contains(const K& key) const { return lookup(key).notFound == 0; }

    /// The slot of key, made if it is not there (inserted is 1 then). References to entries and slot numbers taken
    /// before are dead afterwards, also when the key was there: at the load limit the table grows first.
    QxHashInsert insertKey(const K& key)
    {
        if (tableSize_ == 0)
            resizeNoRehash(0); // a lazy table comes alive with 2 slots
        if (count_ < growLimit_)
            return place(key);
        K own(key); // key may live in this table
        rehash(getHashSize(2 * count_));
        return place(own);
    }

    /// Table size for n keys (at least for those in it), with all entries kept.
    void resize(unsigned int n) { rehash(getHashSize(n < count_ ? count_ : n)); }

    /// Table size for n keys; all entries are dropped. A failing allocation changes nothing.
    void resizeNoRehash(unsigned int n)
    {
        const std::uint32_t size = getHashSize(n);
        if (count_ == 0 && size == tableSize_)
            return;
        if (table_.size() < size)
            table_.resize(size);
        reset();
        setSize(size);
    }

    /// Back to a table of 2; all references held by keys and values are dropped.
    void clear()
    {
        if (count_ != 0 || tableSize_ != 2)
            resizeNoRehash(0);
    }

    /// Drops all entries, keeps the table's size.
    void reset()
    {
        for (std::uint32_t i = 0; i < tableSize_; ++i)
            if (table_[i].used) {
                table_[i] = Entry();
                --count_;
            }
    }

    iterator begin() { return {table_.data(), table_.data() + tableSize_}; }
    iterator end() { return {table_.data() + tableSize_, table_.data() + tableSize_}; }
    const_iterator begin() const { return {table_.data(), table_.data() + tableSize_}; }
    const_iterator end() const { return {table_.data() + tableSize_, table_.data() + tableSize_}; }

    const K& key(std::uint32_t slot) const { return table_[slot].key; }

    /// Number of keys.
    unsigned size() const { return count_; }
    bool empty() const { return count_ == 0; }
    bool isLazy() const { return lazy_; }
    unsigned getTableSize() const { return tableSize_; }
    /// Insertion of a key into a table with this count grows it first: (int)(0.72 tableSize).
    unsigned getGrowLimit() const { return growLimit_; }
    /// Probes beyond the first over all insertions, those of rehashing included; for diagnosis.
    unsigned getCollisions() const { return collisions_; }

protected:
    std::vector<Entry> table_;

private:
    void setSize(std::uint32_t size)
    {
        tableSize_ = size;
        mask_ = size - 1;
        growLimit_ = static_cast<std::uint32_t>(0.72 * size);
    }

    /// Moves all entries into a fresh table; a failing allocation changes nothing.
    void rehash(std::uint32_t size)
    {
        std::vector<Entry> old(size);
        old.swap(table_);
        const std::uint32_t oldSize = tableSize_;
        setSize(size);
        for (std::uint32_t i = 0; i < oldSize; ++i)
            if (old[i].used)
                table_[findSlot(old[i].key).slot] = std::move(old[i]);
    }

    QxHashInsert place(const K& key)
    {
        const QxHashInsert found = findSlot(key);
        if (found.inserted) {
            Entry& entry = table_[found.slot];
            entry.key = key;
            entry.used = 1;
            ++count_;
        }
        return found;
    }

    QxHashInsert findSlot(const K& key)
    {
        const std::uint32_t hash = hash_(key), step = (hash >> 5) | 1u;
        for (std::uint32_t i = hash & mask_;; i = (i + step) & mask_) {
            if (!table_[i].used)
                return {i, 1};
            if (equal_(table_[i].key, key))
                return {i, 0};
            ++collisions_;
        }
    }

    bool lazy_;
    std::uint32_t tableSize_ = 0;
    std::uint32_t mask_ = 0;
    std::uint32_t growLimit_ = 0;
    std::uint32_t count_ = 0;
    std::uint32_t collisions_ = 0;
    [[no_unique_address]] H hash_;
    [[no_unique_address]] C equal_;
};

template <class V, class K>
struct MapEntry
{
    K key{};
    V value{};
    std::uint16_t used = 0;
};

template <class K>
struct SetEntry
{
    K key{};
    std::uint16_t used = 0;
};

} // namespace qxhash_detail

/// Open-addressing map from keys K to values V; the value type comes first. Single entries cannot be deleted.
///
/// A slot number is good until the next insertion or resize. Callers that may insert in between look up again.
/// Cost:    one hash and usually one slot a lookup; load 0.36 to 0.72.
/// Fails:   std::bad_alloc only; an insertion that fails to grow leaves the table as it was.
/// Threads: as for a plain value; not synchronised.
template <class V, class K, class H = QxHashFun, class C = QxHashComp>
class QxHashMap : public qxhash_detail::Table<qxhash_detail::MapEntry<V, K>, K, H, C>
{
    using Base = qxhash_detail::Table<qxhash_detail::MapEntry<V, K>, K, H, C>;

public:
    explicit QxHashMap(unsigned int size = 0, bool lazy = true) : Base(size, lazy) {}

    /// Stores value under key if the key is new; the value of a known key is kept.
    QxHashInsert insert(const K& key, V value)
    {
        const QxHashInsert result = this->insertKey(key);
        if (result.inserted)
            this->table_[result.slot].value = std::move(value);
        return result;
    }

    /// The value in a slot that lookup or an insertion returned.
    V& at(std::uint32_t slot) { return this->table_[slot].value; }
    const V& at(std::uint32_t slot) const { return this->table_[slot].value; }
};

/// Open-addressing set, otherwise as QxHashMap.
template <class K, class H = QxHashFun, class C = QxHashComp>
class QxHashSet : public qxhash_detail::Table<qxhash_detail::SetEntry<K>, K, H, C>
{
    using Base = qxhash_detail::Table<qxhash_detail::SetEntry<K>, K, H, C>;

public:
    explicit QxHashSet(unsigned int size = 0, bool lazy = true) : Base(size, lazy) {}

    QxHashInsert insert(const K& key) { return this->insertKey(key); }
};
