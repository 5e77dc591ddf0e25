// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "evalnodes.hpp"

#include <utility>
#include <vector>

namespace qxeval {

/// The node behind any proxies.
const EvalNode& behindProxies(const EvalNode& node);
/// The operation that a node stands for, looking through proxies; null for any other node.
const OpNode* asOperation(const EvalNode* node);

/// Number of distinct operations of a graph; no more than most + 1 are looked at.
std::size_t countOperations(const EvalNode& root, std::size_t most);

/// The node as expression text. Raises "Expression_nested_too_deeply" before the stack ends.
std::string nodeText(const EvalNode& node);
/// The same for the record of a failure: "..." if the text cannot be made.
std::string nodeTextOrDots(const EvalNode& node);

/// Computes a result for every operation of a graph, arguments first, with an explicit stack and each node once: time
/// and memory are linear in the number of distinct nodes, the machine stack takes no part.
///
///   class Pass {
///       using Result = ...;                                              // default constructible, copyable
///       Result leaf(const EvalNode& node);                               // a node that is no operation
///       bool known(const ProxyNode& proxy, Result& result);              // memoised for longer than this walk?
///       void done(const ProxyNode& proxy, const Result& result);
///       Result combine(const OpNode& op, const std::vector<Result>& args);
///   };
template <class Pass>
typename Pass::Result walkGraph(const EvalNode& root, Pass& pass)
{
    using Result = typename Pass::Result;
    struct Frame
    {
        const EvalNode* node;  // what the parent refers to: an operation or a proxy of one
        const ProxyNode* proxy; // the node, if it is a proxy
        const OpNode* op;
        std::size_t next;
    };
    std::vector<Frame> frames;
    std::vector<Result> values;
    std::vector<Result> args;
    QxHashMap<Result, const EvalNode*> memo;

    // Pushes a value if there is one, otherwise a frame.
    const auto visit = [&](const EvalNode* node) {
        const OpNode* const op = asOperation(node);
        if (!op) {
            values.push_back(pass.leaf(*node));
            return;
        }
        const QxHashLookup hit = memo.lookup(node);
        if (hit) {
            values.push_back(memo.at(hit.slot));
            return;
        }
        const ProxyNode* const proxy = dynamic_cast<const ProxyNode*>(node);
        Result result;
        if (proxy && pass.known(*proxy, result))
            values.push_back(std::move(result));
        else
            frames.push_back({node, proxy, op, 0});
    };

    visit(&root);
    while (!frames.empty()) {
        Frame& frame = frames.back();
        const EvalNodes& operands = frame.op->getArgs();
        if (frame.next < operands.size()) {
            visit(operands[frame.next++].get());
            continue;
        }
        const auto first = values.end() - static_cast<std::ptrdiff_t>(operands.size());
        args.assign(std::make_move_iterator(first), std::make_move_iterator(values.end()));
        values.erase(first, values.end());
        Result result = pass.combine(*frame.op, args);
        if (frame.proxy)
            pass.done(*frame.proxy, result);
        memo.insert(frame.node, result);
        values.push_back(std::move(result));
        frames.pop_back();
    }
    return std::move(values.back());
}

} // namespace qxeval
