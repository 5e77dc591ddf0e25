// SPDX-License-Identifier: LicenseRef-qxkernel
#include "noderelease_detail.hpp"

#include "evalnodes.hpp"
#include "evaltree.hpp"

#include <utility>

namespace qxeval {

namespace {

/// References of one type waiting for release. The list lives in the frame of the outermost release, so that nothing is
/// left to the end of the thread.
template <class Pointer>
class Releaser
{
public:
    static void release(Pointer& p) noexcept
    {
        if (!p || p.use_count() != 1) {
            p.reset();
            return;
        }
        if (waiting_) {
            try {
                waiting_->push_back(std::move(p));
            } catch (...) {
                p.reset(); // without memory for the list a machine stack frame has to do
            }
            return;
        }
        std::vector<Pointer> waiting;
        waiting_ = &waiting;
        p.reset();
        while (!waiting.empty()) {
            Pointer next = std::move(waiting.back());
            waiting.pop_back();
            next.reset();
        }
        waiting_ = nullptr;
    }

private:
    inline static thread_local std::vector<Pointer>* waiting_ = nullptr;
};

} // namespace

void releaseLater(EvalNodePtr& node) noexcept
{
    Releaser<EvalNodePtr>::release(node);
}

void releaseLater(EvalNodes& nodes) noexcept
{
    for (EvalNodePtr& node : nodes)
        Releaser<EvalNodePtr>::release(node);
}

void releaseLater(EvalTreePtr& tree) noexcept
{
    Releaser<EvalTreePtr>::release(tree);
}

} // namespace qxeval
