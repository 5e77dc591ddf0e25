// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

#include <cstddef>
#include <exception>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Raises a qxbase::Exception with the line filled in:
///     QX_RAISE("sparse", "Size_sparse_matrices_disagree");
///     QX_RAISE("umfpack", "Internal_error_in_UMFPACK", "Error_code", status);
/// The first argument is the module tag (the source unit's name), the second the identifier, then its arguments.
#define QX_RAISE(module, ...) throw ::qxbase::Exception(module, __LINE__, __VA_ARGS__)

namespace qxbase {

/// Named context of a failure: (key, value). Integer values are kept as decimal text.
using ExceptionArgs = std::vector<std::pair<std::string, std::string>>;

/// A failure: a stack of entries, the innermost (first raised) at index 0.
///
/// Each entry has a module tag, a source line, an error identifier and named arguments. The identifier is a stable key
/// for the layer above, which owns the wording that users see; identifiers are never reworded. Plain value, copied
/// freely, caught by value or reference. Not derived from std::exception: a frame that must let nothing out catches both.
class QX_API Exception
{
public:
    /// An empty exception: no entries.
    Exception();
    Exception(const std::string& file, int line, const std::string& id);
    /// One argument with the key arg and an empty value.
    Exception(const std::string& file, int line, const std::string& id, const std::string& arg);
    /// One argument with key and value.
    Exception(const std::string& file, int line, const std::string& id, const std::string& key,
              const std::string& value);
    Exception(const std::string& file, int line, const std::string& id, const std::string& key, int value);
    Exception(const std::string& file, int line, const std::string& id, const std::string& key, long value);
    Exception(const std::string& file, int line, const std::string& id, const std::string& key, unsigned long value);
    Exception(const std::string& file, int line, const std::string& id, const ExceptionArgs& args);
    Exception(const std::string& file, int line, const std::string& id,
              const std::vector<std::pair<std::string, int>>& args);

    Exception(const Exception&);
    Exception(Exception&&) noexcept;
    Exception& operator=(const Exception&);
    Exception& operator=(Exception&&) noexcept;
    virtual ~Exception();

    /// Pushes a further entry on an exception that travels upward: catch, add, raise again.
    void add(const std::string& file, int line, const std::string& id, const ExceptionArgs& args = {});
    void add(const std::string& file, int line, const std::string& id,
             const std::vector<std::pair<std::string, int>>& args);

    /// Number of entries.
    std::size_t size() const { return entries_.size(); }
    const std::string& getFile(std::size_t i) const { return entries_.at(i).file; }
    int getLine(std::size_t i) const { return entries_.at(i).line; }
    const std::string& getId(std::size_t i) const { return entries_.at(i).id; }
    const ExceptionArgs& getArgs(std::size_t i) const { return entries_.at(i).args; }
    /// The identifier of the innermost entry; empty for an empty exception.
    std::string getId() const { return entries_.empty() ? std::string() : entries_.front().id; }
    /// The whole stack as text, innermost entry first, one line each: "module:line Identifier (key = value, ...)".
    std::string toString() const;

private:
    struct Entry
    {
        std::string file;
        int line;
        std::string id;
        ExceptionArgs args;
    };
    std::vector<Entry> entries_;
};

/// The user stopped the run. Catch it before Exception: catching the base by value slices it.
class QX_API CancelException : public Exception
{
public:
    CancelException();
    CancelException(const std::string& file, int line);
};

/// Moves a failure out of a parallel region: nothing may be raised through a region's boundary.
///
/// Threads: storeException may be called by every member of a team; the first failure is kept, a CancelException stays
/// one. throwException is called after the region.
class QX_API ParallelException
{
public:
    /// Keeps a copy of e if none was stored before.
    void storeException(const Exception& e) noexcept;
    /// Keeps the exception being handled, whatever its type. Call inside a catch block.
    void storeCurrent() noexcept;
    bool isStored() const noexcept;
    /// Raises the stored failure; does nothing without one.
    void throwException();

private:
    mutable std::mutex mutex_;
    std::exception_ptr first_;
};

} // namespace qxbase
