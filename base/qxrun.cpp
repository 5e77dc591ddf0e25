// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxrun.hpp"

#include "qxexception.hpp"

#include <algorithm>

namespace qxutil {

RunListener::~RunListener() = default;
void RunListener::onMessage(const std::string&, const std::string&) {}
void RunListener::onProgress(const std::string&, double) {}
void RunListener::onParam(const std::string&, const std::string&, double) {}

void RunInfo::throwIfCancelled(const char* module, int line) const
{
    if (isCancelled())
        throw qxbase::CancelException(module, line);
}

RunLog::RunLog(RunInfo& info, bool progress, bool messages) : info_(info), progress_(progress), messages_(messages) {}

void RunLog::init(const std::string& title)
{
    title_ = title;
    paramName_.clear();
    paramValue_ = 0;
    lastProgress_ = 0;
    scale_ = 1;
}

void RunLog::addMessage(const std::string& text)
{
    if (messages_ && info_.isActive())
        info_.getListener()->onMessage(title_, text);
}

void RunLog::setParam(const std::string& name, double value)
{
    paramName_ = name;
    paramValue_ = value;
    if (messages_ && info_.isActive())
        info_.getListener()->onParam(title_, name, value);
}

void RunLog::setProgress(double value)
{
    lastProgress_ = value;
    if (progress_ && info_.isActive())
        info_.getListener()->onProgress(title_, getFraction());
}

void RunLog::setProgressScale(double value)
{
    if (value > 0)
        scale_ = value;
}

double RunLog::getFraction() const { return std::clamp(lastProgress_ / scale_, 0.0, 1.0); }

} // namespace qxutil
