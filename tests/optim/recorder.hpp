// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "optimstate.hpp"
#include "recording.hpp"

#include <gmock/gmock.h>

/// A test against the recording library, with an empty script.
class WithRecorder : public testing::Test
{
protected:
    WithRecorder()
    {
        qxoptim::initializeOptim();
        OptimState::setLibraryPath(QX_RECORDING_FOLDER);
        OptimState::loadLib();
        library = OptimState::getOptlib();
        const auto find =
            reinterpret_cast<recording::ScriptFunction*>(library->getSymbolAddress("recordingScript"));
        script = find();
        *script = recording::Script();
    }
    ~WithRecorder() override
    {
        *script = recording::Script();
        OptimState::setLibraryPath("");
    }

    /// Calls whose line begins with this, in order.
    std::vector<std::string> callsOf(const std::string& name) const
    {
        std::vector<std::string> found;
        for (const std::string& call : script->calls)
            if (call.compare(0, name.size(), name) == 0)
                found.push_back(call);
        return found;
    }

    boost::shared_ptr<qxbase::QxLib> library; ///< keeps the script in memory whatever a test opens
    recording::Script* script;
};
