// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "optimstate.hpp"
#include "qxexception.hpp"
#include "qxrun.hpp"

#include <cstring>
#include <exception>
#include <new>
#include <optional>

namespace qxoptim {

/// Carries calls of the optimizer to the host's callback and failures around the optimizer's frames.
///
/// The optimizer gets the address of the relay as its one word of user data, so that runs share nothing. A failure, or a
/// cancelled run, is kept, the optimizer told to stop, and rethrow raises after it has returned.
template <class Callback>
class Relay
{
public:
    /// callback and info (null: none) are lent.
    Relay(Callback& callback, qxutil::RunInfo* info) : callback_(callback), info_(info)
    {
        if (info_ != nullptr && info_->isActive()) {
            log_.emplace(*info_);
            log_->init("Optimization");
        }
        const Relay* self = this;
        static_assert(sizeof self == sizeof word_);
        std::memcpy(word_, &self, sizeof self);
    }
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    /// The user data: the bits of this relay's address.
    char* word() { return word_; }
    static Relay& of(const char* word)
    {
        Relay* self = nullptr;
        std::memcpy(&self, word, sizeof self);
        return *self;
    }

    /// One call of the optimizer: evaluate(callback, status). At least 2 on entry is the final notification, which is none of
    /// the host's business; so is every call after a failure.
    template <class Evaluate>
    void run(int* status, const Evaluate& evaluate) noexcept
    {
        if (failure_ != Failure::None) {
            *status = kStop;
            return;
        }
        if (*status >= kLastCall)
            return;
        try {
            if (callback_.isCancelled() || (info_ != nullptr && info_->isCancelled()))
                throw qxbase::CancelException("optim", __LINE__);
            evaluate(callback_, *status);
            ++evaluations_;
            if (log_)
                log_->setParam("Evaluations", evaluations_);
            return;
        } catch (const qxbase::Exception&) {
            kept_ = std::current_exception(); // with its own type
            failure_ = Failure::Kept;
        } catch (const std::bad_alloc&) {
            failure_ = Failure::Memory;
        } catch (...) {
            failure_ = Failure::Unknown;
        }
        *status = kStop;
    }

    /// Raises what a call has kept, the kinds without an exception of their own under these identifiers.
    void rethrow(const char* memoryId, const char* unknownId) const
    {
        switch (failure_) {
        case Failure::None: return;
        case Failure::Kept: std::rethrow_exception(kept_);
        case Failure::Memory: QX_RAISE("optim", memoryId);
        case Failure::Unknown: QX_RAISE("optim", unknownId);
        }
    }

private:
    enum class Failure { None, Kept, Memory, Unknown };
    static constexpr int kStop = -2; // -1 would ask for a shorter step
    static constexpr int kLastCall = 2;

    Callback& callback_;
    qxutil::RunInfo* info_;
    std::optional<qxutil::RunLog> log_;
    double evaluations_ = 0;
    Failure failure_ = Failure::None;
    std::exception_ptr kept_;
    char word_[8];
};

} // namespace qxoptim
