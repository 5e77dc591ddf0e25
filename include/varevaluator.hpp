// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "depinfo.hpp"
#include "evalnodes.hpp"
#include "fwd.hpp"
#include "qxexport.hpp"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// The counter that version numbers come from.
class QX_API VersionMaster
{
public:
    /// The next number. Safe from any thread; wraps at 2^32.
    unsigned newKey();

private:
    unsigned counter_ = 0;
};

/// A version: caches remember the one they were filled at and are stale when the evaluator has another.
///
/// Two keys taken from one master are never equal, so a fresh key always invalidates. Equality compares numbers only:
/// keys of different masters may be equal, and caches must not be shared across masters.
class QX_API VersionKey
{
public:
    /// The first number of a new master.
    VersionKey();
    /// A new number from other's master.
    explicit VersionKey(const VersionKeyPtr& other);
    /// Copies keep the number.
    VersionKey(const VersionKey&) = default;
    VersionKey& operator=(const VersionKey&) = default;

    /// Takes a new number: everything filled at the old one is stale.
    void update() { number_ = master_->newKey(); }
    bool operator==(const VersionKey& other) const { return number_ == other.number_; }
    unsigned getNumber() const { return number_; }

private:
    boost::shared_ptr<VersionMaster> master_;
    unsigned number_;
};

/// What tells two entries of one variable apart in the check for circular definitions: a host sets it where the same
/// name stands for different things (a component, an index, a time level).
struct RecVarData
{
    bool flag = false;
    std::uint32_t words[3] = {0, 0, 0};

    friend bool operator==(const RecVarData& a, const RecVarData& b)
    {
        return a.flag == b.flag && a.words[0] == b.words[0] && a.words[1] == b.words[1] && a.words[2] == b.words[2];
    }
};

/// Which evaluation is going on, so that a value that failed is tried once in it and not at every use.
///
/// An evaluation begins where nothing is being evaluated yet: with a tree, a set of trees or a node. What fails after the
/// nesting limit or an infinite loop was met says nothing about the value itself, unless it was needed to compute itself;
/// such a failure counts only until the check for circular definitions is back at depth 0.
class QX_API EvaluationMark
{
public:
    EvaluationMark();

    /// False, and nothing is done, inside an evaluation.
    bool begin()
    {
        if (open_)
            return false;
        open_ = true;
        evaluation_ = ++tick_;
        descent_ = ++tick_;
        limitMet_ = false;
        return true;
    }
    void end() { open_ = false; }

    void meetLimit() { limitMet_ = true; }
    /// Back at depth 0.
    void surface()
    {
        if (limitMet_)
            descent_ = ++tick_;
        limitMet_ = false;
    }

    /// What to remember of a failure now, for isCurrent; of a circular one whatever else was met.
    std::uint64_t stamp(bool circular) const { return limitMet_ && !circular ? descent_ : evaluation_; }
    /// A failure with this stamp need not be tried again yet.
    bool isCurrent(std::uint64_t stamp) const { return open_ && (stamp == evaluation_ || stamp == descent_); }

private:
    std::uint64_t tick_; // no two marks give the same stamp: each counts on from a number of its own
    std::uint64_t evaluation_ = 0, descent_ = 0;
    bool open_ = false, limitMet_ = false;
};

/// The state of the check for circular definitions: how deep variables are nested, which one came first, and whether it
/// was met again. One object belongs to one thread.
class QX_API RecCount
{
public:
    virtual ~RecCount();
    /// Goes one variable deeper. At depth 1 the variable becomes the start; below it, meeting the start's name with equal
    /// data marks an infinite loop, unless the name ends in "}" (an indexed, generated name).
    virtual void enter(const std::string& name, const RecVarData& data) = 0;
    /// Back by one variable; at depth 0 the start and the mark are forgotten.
    virtual void leave() = 0;
    virtual int getDepth() const = 0;
    virtual bool isInfiniteLoop() const = 0;

    EvaluationMark& getMark() { return mark_; }

private:
    EvaluationMark mark_;
};

/// The working form.
class QX_API RecCountImpl : public RecCount
{
public:
    void enter(const std::string& name, const RecVarData& data) override;
    void leave() override;
    int getDepth() const override { return depth_; }
    bool isInfiniteLoop() const override { return infiniteLoop_; }

private:
    int depth_ = 0;
    std::string start_;
    RecVarData startData_;
    bool infiniteLoop_ = false;
};

/// A form that forwards to one it owns: the serial path has a single one, shared by all its evaluators.
class QX_API SerialRecCount : public RecCount
{
public:
    SerialRecCount();
    void enter(const std::string& name, const RecVarData& data) override { impl_->RecCountImpl::enter(name, data); }
    void leave() override { impl_->RecCountImpl::leave(); }
    int getDepth() const override { return impl_->RecCountImpl::getDepth(); }
    bool isInfiniteLoop() const override { return impl_->RecCountImpl::isInfiniteLoop(); }

private:
    boost::shared_ptr<RecCountImpl> impl_;
};

/// The scope of one variable's evaluation: stops definitions that refer to themselves.
///
/// Made on the stack as each variable is entered; the destructor goes back by one, on every way out. Reports when the
/// variable that started the check is met again, at a depth of 10000 variables, or when less than 256 KB, or a quarter, of
/// the machine stack is left. The name is lent for the scope's life.
class QX_API RecLimCheck
{
public:
    RecLimCheck(const VarEvaluatorPtr& evaluator, const std::string& name);
    ~RecLimCheck();
    RecLimCheck(const RecLimCheck&) = delete;
    RecLimCheck& operator=(const RecLimCheck&) = delete;

    /// Called once, by VarEvaluator::initRecLimCheck. The count is lent for the scope's life: the evaluator keeps it.
    void init(const boost::shared_ptr<RecCount>& count, const std::string& name, const RecVarData& data);

    bool isLimitExceeded() const;
    bool isInfiniteLoop() const;
    /// Opens the record of a definition that cannot be followed: "message" = "circvar" for a circular one, found by its start
    /// or its depth, "Expression_nested_too_deeply" for one that only lacks machine stack; "var" = name.
    void setCircular(const std::string& name);
    bool isError() const;
    /// The record; null without an error.
    const boost::shared_ptr<ErrInfo>& getErrors() const { return errors_; }
    /// Raises the record as an exception; does nothing without one.
    void throwError() const;

    const std::string& getName() const { return name_; }

private:
    bool isTooDeep() const;
    void leave();

    RecCount* count_ = nullptr;
    const std::string& name_;
    boost::shared_ptr<ErrInfo> errors_;
};

/// The scope of an evaluation; one inside another belongs to the outer one.
class QX_API EvaluationScope
{
public:
    explicit EvaluationScope(const VarEvaluatorPtr& evaluator);
    ~EvaluationScope()
    {
        if (begun_)
            mark_.end();
    }
    EvaluationScope(const EvaluationScope&) = delete;
    EvaluationScope& operator=(const EvaluationScope&) = delete;

private:
    EvaluationMark& mark_;
    const bool begun_;
};

/// What a host remembers about one call of one of its operators.
class QX_API OperatorData
{
public:
    virtual ~OperatorData();
};

/// The host's side of the evaluator: what names, functions and operators mean.
///
/// Passed to itself as the first argument of its operations, so that a wrapper can hand its own pointer to nodes. The
/// virtual operations are an interface to other native libraries: their order is fixed, new ones go to the end.
/// One object, its ShadowHandler and its RecCount belong to one thread at a time; the NodeMaker is shared by all
/// evaluators of a model. Names in arguments: var and vars are variables, an empty list means any basic variable. What a
/// host raises in them, std::bad_alloc included, passes through the evaluation, which can then be repeated.
class QX_API VarEvaluator
{
public:
    /// An evaluator of its own: new version, recursion count and flag.
    VarEvaluator(const NodeMakerPtr& nodeMaker, const boost::shared_ptr<ShadowHandler>& shadows);
    /// One that shares everything with a parent.
    VarEvaluator(const VersionKeyPtr& version, const boost::shared_ptr<RecCount>& recCount,
                 const boost::shared_ptr<unsigned int>& diffFlags, const NodeMakerPtr& nodeMaker,
                 const boost::shared_ptr<ShadowHandler>& shadows);
    virtual ~VarEvaluator();
    VarEvaluator(const VarEvaluator&) = delete;
    VarEvaluator& operator=(const VarEvaluator&) = delete;

    /// Fills rep, which is kept under the name by the cache, with the value of a variable that has no definition.
    virtual void eval(const VarEvaluatorPtr& evaluator, const std::string& name, unsigned flags, const ValRepPtr& rep,
                      const ValRepCachePtr& cache) = 0;
    /// The value of a host operator. Raises "Internal_evaluator_error" with "Undefined_operator" and the name.
    virtual ValRepPtr eval(const VarEvaluatorPtr& evaluator, const std::string& op, const std::vector<ValRepPtr>& args,
                           unsigned flags, const ValRepCachePtr& cache);

    /// The definition of a name; null for a basic variable.
    virtual EvalNodePtr expand(const VarEvaluatorPtr& evaluator, const std::string& name);

    /// The derivative of a variable: its definition's; the zero node for a basic one.
    virtual EvalNodePtr diff(const VarEvaluatorPtr& evaluator, const std::string& name, const std::string& var);
    /// The derivative of a host operator. Raises "Internal_evaluator_error".
    virtual EvalNodePtr diff(const VarEvaluatorPtr& evaluator, const std::string& op, const EvalNodes& args,
                             const std::string& var);

    /// The dependence of a variable: its definition's; order 0 of group 0 for a basic one that is asked for.
    virtual DepInfo depends(const VarEvaluatorPtr& evaluator, const std::string& name,
                            const std::vector<std::string>& vars);
    /// The dependence of a host operator: the union of its arguments'.
    virtual DepInfo depends(const VarEvaluatorPtr& evaluator, const std::string& op, const EvalNodes& args,
                            const std::vector<std::string>& vars);

    /// The dependence of a variable's derivatives: its definition's; none for a basic one.
    virtual DepInfo jacDepends(const VarEvaluatorPtr& evaluator, const std::string& name,
                               const std::vector<std::string>& vars);
    /// The same for a host operator, which counts as nonlinear: the union of its arguments' dependences.
    virtual DepInfo jacDepends(const VarEvaluatorPtr& evaluator, const std::string& op, const EvalNodes& args,
                               const std::vector<std::string>& vars);

    /// The basic variables of a variable: its definition's, or its own name.
    virtual void gatherBVars(const VarEvaluatorPtr& evaluator, const std::string& name, NodeIdSet& seen,
                             NameSet& names);
    /// The basic variables of a host operator: its arguments'.
    virtual void gatherBVars(const VarEvaluatorPtr& evaluator, const std::string& op, const EvalNodes& args,
                             NodeIdSet& seen, NameSet& names);

    /// The function of that name and argument count. Raises what the host says of an unknown one.
    virtual FunObjPtr getFun(const std::string& name, int nArgs) = 0;
    /// The same for a call with string arguments: their texts and 0-based positions; nArgs counts all arguments.
    virtual FunObjPtr getStringFun(const std::string& name, int nArgs, const std::vector<std::string>& strings,
                                   const std::vector<int>& positions) = 0;
    /// The name is a host operator with that many arguments.
    virtual bool isOp(const std::string& name, int nArgs);

    /// The memo of host operators: the key of a call, what was remembered under it (null if nothing), remembering.
    virtual std::string makeOpCacheName(const std::string& op, const EvalNodes& args);
    virtual boost::shared_ptr<OperatorData> findOpCacheData(const std::string& cacheName);
    virtual void addOpCacheData(const std::string& cacheName, const boost::shared_ptr<OperatorData>& data);

    /// Two names stand for one variable.
    virtual bool isSameVariable(const std::string& a, const std::string& b);
    /// Enters the variable in the recursion count and fills the check's errors when it went round or too deep.
    virtual void initRecLimCheck(RecLimCheck& check, const std::string& name);
    /// Profiling hooks around the work of a name.
    virtual void tic(const std::string& name);
    virtual void toc(const std::string& name);

    const NodeMakerPtr& getNodeMaker() const { return nodeMaker_; }
    const boost::shared_ptr<ShadowHandler>& getShadowHandler() const { return shadows_; }
    const VersionKeyPtr& getVersion() const { return version_; }
    const boost::shared_ptr<RecCount>& getRecCount() const { return recCount_; }
    /// A number shared by a family of evaluators; linear forms are rebuilt when it changes.
    const boost::shared_ptr<unsigned int>& getDiffFlagManager() const { return diffFlags_; }
    /// The shadow of a tree, made if it is not there.
    boost::shared_ptr<EvalTreeShadow> getEvalTreeShadow(unsigned long treeId);
    /// One object of each standard function, in the order in which names are searched.
    void getStdFuns(std::vector<FunObjPtr>& funs) const;
    /// Makes every shadow stale. Evaluators that share the version see it too.
    void updateVersion();

private:
    VersionKeyPtr version_;
    boost::shared_ptr<RecCount> recCount_;
    boost::shared_ptr<unsigned int> diffFlags_;
    NodeMakerPtr nodeMaker_;
    boost::shared_ptr<ShadowHandler> shadows_;
    std::map<std::string, boost::shared_ptr<OperatorData>> operatorData_;
};

inline EvaluationScope::EvaluationScope(const VarEvaluatorPtr& evaluator)
    : mark_(evaluator->getRecCount()->getMark()), begun_(mark_.begin())
{
}
