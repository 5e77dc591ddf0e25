// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Forward declarations of the evaluation engine and the shared pointers that its interfaces pass.

#include <boost/shared_ptr.hpp>
#include <complex>
#include <vector>

template <class T, int N>
class Array;
class ArrayAllocator;
class DepInfo;
class ErrInfo;
class EvalNode;
class EvalTree;
class EvalTreeShadow;
class ExprComp;
class FunObj;
class NodeMaker;
class RecCount;
class RecLimCheck;
class ShadowBase;
class ShadowHandler;
class ValRep;
class ValRepCache;
class VarEvaluator;
class VersionKey;
class VersionMaster;

using ArrayAllocatorPtr = boost::shared_ptr<ArrayAllocator>;
using EvalNodePtr = boost::shared_ptr<EvalNode>;
using EvalTreePtr = boost::shared_ptr<EvalTree>;
using FunObjPtr = boost::shared_ptr<FunObj>;
using NodeMakerPtr = boost::shared_ptr<NodeMaker>;
using ValRepPtr = boost::shared_ptr<ValRep>;
using ValRepCachePtr = boost::shared_ptr<ValRepCache>;
using VarEvaluatorPtr = boost::shared_ptr<VarEvaluator>;
using VersionKeyPtr = boost::shared_ptr<VersionKey>;

/// Argument nodes of an operation, in source order.
using EvalNodes = std::vector<EvalNodePtr>;
