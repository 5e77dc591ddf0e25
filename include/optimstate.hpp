// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "prop.hpp"
#include "qxexport.hpp"
#include "qxlib.hpp"

#include <boost/shared_ptr.hpp>

#include <initializer_list>
#include <string>

namespace qxutil {
class RunInfo;
}

namespace qxoptim {

enum class Home;

/// Installs the checks of all optimizer properties as global checks; see the table in the page "Optimisation".
QX_API void registerProperties();
/// Start-up of the optimizer driver: registerProperties, once; further calls do nothing. Any thread.
QX_API void initializeOptim();

} // namespace qxoptim

/// What stays alive between calls of the optimizer: its three workspaces and the options in them.
///
///     qxoptim::initializeOptim();
///     OptimState::loadLib();
///     boost::shared_ptr<OptimState> state(new OptimState(4000, 500, 500, true, 0, 0));
///     state->init();
///
/// The optimizer is a closed library behind entry points of Fortran convention, opened at run time from the file
/// "libqxsnopt.dylib"; a free one behind the same entry points is built with this project (optim/ipopt). Each entry point
/// is found by name when it is called: "Symbol_not_found_in_library" ("Library", "Symbol").
///
/// Failures: "Internal_error_optim" from every call of the optimizer without an opened library, for negative lengths and
/// for a print file that cannot be opened ("File"); a workspace without memory raises "Out of memory in optimization" for
/// nonlinear problems and "Out_of_memory_in_optimization" for quadratic ones. After a failure the object is as it was.
///
/// Threads: nothing locks. The optimizer is not reentrant: one optimization at a time in a process.
class QX_API OptimState
{
public:
    /// Lengths of the workspaces: cwLength in bytes, the others in elements. np: nonlinear problems, otherwise quadratic
    /// ones. userIntCount, userRealCount: words of the caller's own at the end of the workspaces, or 0.
    OptimState(int cwLength, int iwLength, int rwLength, bool np, int userIntCount, int userRealCount);
    /// Closes the print file and frees the workspaces.
    ~OptimState();
    OptimState(const OptimState&) = delete;
    OptimState& operator=(const OptimState&) = delete;

    // --- The library, shared by all states --------------------------------------------------------------------------

    /// A folder to look in first; empty: none. An opened library is let go, and the next loadLib opens one anew; states
    /// made before need init again.
    static void setLibraryPath(const std::string& folder);
    /// Opens the library: in the folder of setLibraryPath, beside this library, and where the loader looks. A second call
    /// does nothing. "Cannot_open_library" ("Library", "Reason") of the last attempt, with an entry ("Looked_in") for all
    /// of them; it may be called again later.
    static void loadLib();
    static bool isLibLoaded();
    /// Null before loadLib.
    static boost::shared_ptr<qxbase::QxLib> getOptlib();

    // --- Workspaces -------------------------------------------------------------------------------------------------

    /// New lengths, as in the constructor; contents are kept up to the shorter length. The new tail holds blanks (cw) or
    /// zeros (iw, rw).
    void reallocate(int cw, int iw, int rw);
    void reallocateCw(int cw);
    void reallocateIw(int iw);
    void reallocateRw(int rw);
    /// Lengthens each workspace below these lengths; cw in bytes.
    void reserve(int cw, int iw, int rw);

    char* getCw() { return cw_.data(); }
    int* getIw() { return iw_.data(); }
    double* getRw() { return rw_.data(); }
    /// In words of 8 characters: the bytes divided by 8, rounded down.
    int getCwLength() const { return getCwBytes() >> 3; }
    int getCwBytes() const { return static_cast<int>(cw_.size()); }
    int getIwLength() const { return static_cast<int>(iw_.size()); }
    int getRwLength() const { return static_cast<int>(rw_.size()); }

    // --- Options ----------------------------------------------------------------------------------------------------

    bool isNP() const { return np_; }
    /// The value of "Derivative option", 1 at first: 1 the callback gives the derivatives, 0 it gives none.
    void setDerivLevel(int level) { derivLevel_ = level; }
    int getDerivLevel() const { return derivLevel_; }
    /// Whether an optimization that stops early raises; the property "stop", on at first.
    bool isStopOn() const { return stop_ == 0; }

    /// Prepares the workspaces, first lengthened to the 500 words that the optimizer needs at least, and tells the
    /// optimizer of the caller's words: 500 more than the counts, each only when positive. Options set before are lost.
    void init();
    bool isInitialised() const;

    /// One option; an unknown word only appears in the optimizer's print file.
    void seti(const std::string& word, int value);
    void setr(const std::string& word, double value);
    /// A whole line, handed over with its length as it stands.
    void set(const std::string& line);

    /// Opens a file for the optimizer's output, at its end; one that is open is closed before.
    void setPrintFile(const std::string& name);
    void closePrintFile();

    /// Checks and completes the properties of one class of problem, then refuses those that are not of it
    /// ("Unknown_property"): the list is then as it was. checkNP and checkQP take the common ones as well.
    static void checkCommon(qxbase::Prop& prop);
    static void checkNP(qxbase::Prop& prop);
    static void checkQP(qxbase::Prop& prop);
    /// Whether a property is sent with an integer, or with a number.
    static bool isIntOption(const std::string& name);
    static bool isDoubleOption(const std::string& name);

    /// Sends every property that the list holds, in the order of the table: the common ones, then those of the class.
    /// The property "print" comes first. What no check has put into the list is not sent.
    void setCommonOptions(const qxbase::Prop& prop);
    void setNPOptions(const qxbase::Prop& prop);
    void setQPOptions(const qxbase::Prop& prop);

    // --- Progress ---------------------------------------------------------------------------------------------------

    /// Where optimizations report (title "Optimization", parameter "Evaluations") and whether they are cancelled; null,
    /// as at first: nowhere and never. Lent until it is replaced.
    void setRunInfo(qxutil::RunInfo* info) { runInfo_ = info; }
    qxutil::RunInfo* getRunInfo() const { return runInfo_; }

private:
    void requireLib() const;
    template <class T>
    void replace(Array<T, 1>& workspace, int length, T fill) const;
    static void checkGroups(qxbase::Prop& prop, std::initializer_list<qxoptim::Home> groups);
    void sendGroup(const qxbase::Prop& prop, qxoptim::Home group);
    void sendOwn(const qxbase::Prop& prop, const std::string& property);
    template <class Entry, class... Value>
    void send(Entry* entry, const std::string& text, const Value*... value);

    bool np_;
    int userIntCount_;
    int userRealCount_;
    int derivLevel_ = 1;
    Array<char, 1> cw_;
    Array<int, 1> iw_;
    Array<double, 1> rw_;
    int stop_ = 0;
    boost::shared_ptr<qxbase::QxLib> initLib_;  ///< the library that init was called in
    boost::shared_ptr<qxbase::QxLib> printLib_; ///< the library that holds the print file open, or null
    qxutil::RunInfo* runInfo_ = nullptr;
};
