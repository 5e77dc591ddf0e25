// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "depinfo.hpp"
#include "evalnodes.hpp"
#include "fwd.hpp"
#include "qxexport.hpp"
#include "qxhash.hpp"
#include "varevaluator.hpp"

#include <boost/make_shared.hpp>
#include <string>
#include <utility>
#include <vector>

/// What one evaluator keeps beside one node or tree. It goes stale by version, not by destruction.
class QX_API ShadowBase
{
public:
    ShadowBase() = default;
    ShadowBase(const ShadowBase&) = delete;
    ShadowBase& operator=(const ShadowBase&) = delete;
    virtual ~ShadowBase();

    /// Never filled, or filled at another version than current.
    bool shouldUpdateCache(const VersionKeyPtr& current) const;

protected:
    /// Remembers the evaluator's version. A copy is kept: the evaluator may renew its own key in place.
    void setVersion(const VarEvaluatorPtr& evaluator);

private:
    VersionKeyPtr version_;
};

/// A list of variables whose dependence is being looked for on this thread, for the length of the walk over a graph: the
/// caches that answer for it share one copy, and know it by address. The list must not change meanwhile.
class QX_API DepQuery
{
public:
    explicit DepQuery(const std::vector<std::string>& vars);
    ~DepQuery();
    DepQuery(const DepQuery&) = delete;
    DepQuery& operator=(const DepQuery&) = delete;

private:
    const std::vector<std::string>* outerVars_ = nullptr;
    boost::shared_ptr<const std::vector<std::string>> outerCopy_;
    bool entered_ = false;
};

/// Dependence results for the last list of variables asked for.
class QX_API DepCache
{
public:
    const DepInfo* find(const std::vector<std::string>& vars) const;
    void store(const std::vector<std::string>& vars, const DepInfo& info);
    void clear() { vars_.reset(); }

private:
    boost::shared_ptr<const std::vector<std::string>> vars_; // null: nothing is known
    DepInfo info_;
};

/// The memoised results of an operation.
class QX_API ProxyNodeShadow : public ShadowBase
{
public:
    ~ProxyNodeShadow() override;
    /// Takes the evaluator's version and marks everything invalid.
    void initCache(const VarEvaluatorPtr& evaluator);

    DepCache depends;
    DepCache jacDepends;
    EvalNodePtr diff; ///< null: not valid
    std::string diffVar;
};

using OpNodeShadow = ProxyNodeShadow;
using GenOpNodeShadow = ProxyNodeShadow;

/// A variable as its evaluator knows it: the definition and what was derived from it.
class QX_API VarNodeShadow : public ShadowBase
{
public:
    ~VarNodeShadow() override;
    /// Asks the evaluator for the definition, takes its version and marks everything else invalid.
    void initCache(const VarEvaluatorPtr& evaluator, const std::string& name);

    EvalNodePtr root; ///< the definition; null for a basic variable
    bool open = false;     ///< its value is being computed
    bool circular = false; ///< the value was needed to compute itself
    QxHashMap<EvalNodePtr, std::string> diffs;
    EvalNodePtr simplified; ///< null: not valid
    DepCache depends;
    DepCache jacDepends;
};

/// The root that a derivative resolved to.
class QX_API DiffNodeShadow : public ShadowBase
{
public:
    ~DiffNodeShadow() override;
    void initCache(const VarEvaluatorPtr& evaluator, const EvalNodePtr& resolved);

    EvalNodePtr root;
};

/// The linear form of a tree: its non-zero derivatives by basic variable, and the flag value that it was built at.
class QX_API EvalTreeShadow : public ShadowBase
{
public:
    ~EvalTreeShadow() override;
    /// Takes the evaluator's version and marks everything invalid.
    void initCache(const VarEvaluatorPtr& evaluator);

    bool valid = false;
    unsigned diffFlags = 0;
    std::vector<std::pair<std::string, EvalTreePtr>> linear;
};

/// All shadows of an evaluator, by node id and by tree id. One object belongs to one thread, and to evaluators whose
/// versions come from one master.
class QX_API ShadowHandler
{
public:
    ShadowHandler();
    ~ShadowHandler();
    ShadowHandler(const ShadowHandler&) = delete;
    ShadowHandler& operator=(const ShadowHandler&) = delete;

    /// The shadow of a node, made if it is not there. One id has one type of shadow.
    template <class T>
    void getShadow(unsigned long id, boost::shared_ptr<T>& out)
    {
        const QxHashLookup hit = nodes_.lookup(id);
        if (hit) {
            out = boost::static_pointer_cast<T>(nodes_.at(hit.slot));
        } else {
            out = boost::make_shared<T>();
            nodes_.insert(id, out);
        }
    }
    /// The same as a reference, which holds as long as this object: shadows are never removed.
    template <class T>
    T& shadowOf(unsigned long id)
    {
        const QxHashLookup hit = nodes_.lookup(id);
        if (hit)
            return static_cast<T&>(*nodes_.at(hit.slot));
        boost::shared_ptr<T> made;
        getShadow(id, made);
        return *made;
    }
    boost::shared_ptr<EvalTreeShadow> getEvalTreeShadow(unsigned long treeId);

    /// The id of a node's definition in a compiler (ExprComp::getSerial()), if it was the last one that the node was
    /// defined in.
    bool findDefinition(unsigned long nodeId, unsigned long compiler, int& id) const;
    void setDefinition(unsigned long nodeId, unsigned long compiler, int id);

private:
    QxHashMap<boost::shared_ptr<ShadowBase>, unsigned long> nodes_;
    QxHashMap<boost::shared_ptr<EvalTreeShadow>, unsigned long> trees_;
    QxHashMap<std::pair<unsigned long, int>, unsigned long> definitions_; // compiler and id, by node
};

template <class T>
void EvalNode::getShadow(const VarEvaluatorPtr& evaluator, boost::shared_ptr<T>& out) const
{
    evaluator->getShadowHandler()->getShadow(id_, out);
}
