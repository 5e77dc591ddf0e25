// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

#include <string>
#include <utility>
#include <vector>

namespace qxutil {

/// What a host overrides to see the progress of long runs. Called on the thread that runs, between its steps.
class QX_API RunListener
{
public:
    virtual ~RunListener();
    virtual void onMessage(const std::string& title, const std::string& text);
    /// fraction runs from 0 to 1.
    virtual void onProgress(const std::string& title, double fraction);
    virtual void onParam(const std::string& title, const std::string& name, double value);
};

/// Progress and cancel state of a long run: owned by the host, lent to the operations it starts.
///
/// Threads: cancel and isCancelled may be called on any thread at any time; the rest belongs to the thread that runs.
class QX_API RunInfo
{
public:
    /// listener is lent and must outlive the run; null: nobody listens, and the run is not active.
    explicit RunInfo(RunListener* listener = nullptr) : listener_(listener) {}
    RunInfo(const RunInfo&) = delete;
    RunInfo& operator=(const RunInfo&) = delete;

    /// Asks the run to stop at its next look at the flag; false takes the wish back.
    void cancel(bool wanted = true) { __atomic_store_n(&cancel_, wanted ? 1 : 0, __ATOMIC_RELAXED); }
    bool isCancelled() const { return __atomic_load_n(&cancel_, __ATOMIC_RELAXED) != 0; }
    /// Raises qxbase::CancelException, with the module tag and line of the caller, if the run is cancelled.
    void throwIfCancelled(const char* module, int line) const;

    /// Whether somebody follows the run.
    bool isActive() const { return listener_ != nullptr; }
    /// Address of the cancel flag for code that polls it: non-zero means cancelled.
    const volatile int* adrCancel() const { return &cancel_; }
    RunListener* getListener() const { return listener_; }

private:
    RunListener* listener_;
    volatile int cancel_ = 0;
};

/// Writer of progress lines for one run. Everything goes to the RunInfo's listener; without one, nothing is written.
///
/// Code below the C++ level writes into *adrLastProgress() and *adrParamValue() directly; a reader takes it from there.
/// Threads: belongs to one thread.
class QX_API RunLog
{
public:
    /// info is lent. progress, messages: what is passed on to the listener.
    explicit RunLog(RunInfo& info, bool progress = true, bool messages = true);

    /// Opens the log under a title; progress 0, scale 1, no parameter.
    void init(const std::string& title);
    void addMessage(const std::string& text);
    /// Declares or updates the run's parameter, for example ("Step", 3).
    void setParam(const std::string& name, double value);
    /// How far the run is, in units of the progress scale: value / scale is the fraction done.
    void setProgress(double value);
    /// The value of setProgress that means "done"; 1 at first. Not positive: ignored.
    void setProgressScale(double value);

    /// Where the last progress value stands.
    double* adrLastProgress() { return &lastProgress_; }
    /// Where the value of the run's parameter stands.
    double* adrParamValue() { return &paramValue_; }

    const std::string& getTitle() const { return title_; }
    const std::string& getParamName() const { return paramName_; }
    double getParam() const { return paramValue_; }
    /// The fraction done, at most 1.
    double getFraction() const;

private:
    RunInfo& info_;
    bool progress_;
    bool messages_;
    std::string title_;
    std::string paramName_;
    double paramValue_ = 0;
    double lastProgress_ = 0;
    double scale_ = 1;
};

} // namespace qxutil
