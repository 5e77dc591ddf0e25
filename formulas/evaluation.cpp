// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evaluation_detail.hpp"

#include "evalflags.hpp"
#include "evalrep.hpp"
#include "evaltreeset.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"
#include "qxparallel.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <omp.h>
#include <optional>

namespace qx {

namespace {

using cplx = std::complex<double>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// Not a number, or with `finite` also infinite.
bool isBad(double v, bool finite) { return finite ? !(std::abs(v) <= std::numeric_limits<double>::max()) : v != v; }

/// Whether all numbers are finite. 0 v is 0 for those and NaN for all others, and a sum of it is found quickly: in several
/// lanes, without a branch.
bool allFinite(const double* v, std::size_t n)
{
    constexpr std::size_t lanes = 16;
    double sum[lanes] = {};
    std::size_t i = 0;
    for (; i + lanes <= n; i += lanes)
        for (std::size_t k = 0; k < lanes; ++k)
            sum[k] += 0.0 * v[i + k];
    for (; i < n; ++i)
        sum[0] += 0.0 * v[i];
    return std::none_of(sum, sum + lanes, [](double s) { return s != s; });
}

/// Copies; false if a number among them is no value.
bool copyNumbers(const double* from, double* to, std::size_t n, bool finite)
{
    std::copy_n(from, n, to);
    return allFinite(from, n) || std::none_of(from, from + n, [&](double v) { return isBad(v, finite); });
}

/// Writes the numbers of a value to real targets; false if one of them is no real value.
bool storeNumbers(const ValRepPtr& value, double* to, std::size_t n, bool finite)
{
    if (value->isComplex()) {
        if (value->isScalar()) {
            const cplx z = value->getComplex();
            std::fill_n(to, n, z.real());
            return z.imag() == 0.0 && !isBad(z.real(), finite);
        }
        const cplx* const z = value->getComplexIterator(0);
        bool good = true;
        for (std::size_t i = 0; i < n; ++i) {
            good &= z[i].imag() == 0.0 && !isBad(z[i].real(), finite);
            to[i] = z[i].real();
        }
        return good;
    }
    if (value->isScalar()) {
        const double v = value->getDouble();
        std::fill_n(to, n, v);
        return !isBad(v, finite);
    }
    if (!value->isStoredAsComplex())
        return copyNumbers(value->getDoubleIterator(0), to, n, finite);
    value->copyToArray(to, static_cast<int>(n), 1);
    return std::none_of(to, to + n, [&](double v) { return isBad(v, finite); });
}

bool storeNumbers(const ValRepPtr& value, cplx* to, std::size_t n, bool finite)
{
    value->copyToArray(to, static_cast<int>(n), 1);
    bool good = true;
    for (std::size_t i = 0; i < n; ++i)
        good &= !isBad(to[i].real(), finite) && !isBad(to[i].imag(), finite);
    return good;
}

std::string numberText(const cplx& z)
{
    return z.imag() == 0.0 ? qxutil::toString(z.real()) : qxutil::toString(z);
}

} // namespace

/// A worker for a scope.
class Evaluation::Lease
{
public:
    explicit Lease(const Evaluation& e) : program_(e.program_), worker_(program_.take(e.options_.block)) {}
    ~Lease()
    {
        try {
            program_.give(std::move(worker_));
        } catch (const std::bad_alloc&) { // then it ends here
        }
    }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    Worker& operator*() const { return *worker_; }

private:
    const CompiledFormulas& program_;
    std::unique_ptr<Worker> worker_;
};

Evaluation::Evaluation(const CompiledFormulas& program, const Names& names, const Columns& columns, std::size_t points,
                       const std::vector<Job>& jobs, EvalTreeSet* set, const Options& options)
    : program_(program), names_(names), columns_(columns), points_(points), jobs_(jobs), set_(set), options_(options),
      blocks_(points / options.block + (points % options.block != 0 ? 1 : 0)),
      flags_(EvalValues | (options.keepReal ? EvalKeepReal : 0u)), bad_(blocks_)
{
}

int Evaluation::threads() const
{
    if (omp_in_parallel() || (options_.threads == 0 && points_ < qxbase::parallelThreshold))
        return 1;
    const int allowed = options_.threads == 0 ? AVAILABLETHREADS() : options_.threads;
    return static_cast<int>(std::clamp<std::size_t>(blocks_, 1, static_cast<std::size_t>(allowed)));
}

Range Evaluation::rangeOf(std::size_t block) const
{
    const std::size_t first = block * options_.block;
    return {first, std::min(options_.block, points_ - first)};
}

void Evaluation::throwIfCancelled() const
{
    if (options_.run != nullptr)
        options_.run->throwIfCancelled("formulas", __LINE__);
}

Failures Evaluation::run()
{
    throwIfCancelled();
    std::optional<qxutil::RunLog> log;
    if (options_.run != nullptr) {
        log.emplace(*options_.run);
        log->init("Evaluating formulas");
        log->setProgressScale(static_cast<double>(points_));
    }
    if (jobs_.empty())
        return {};
    for (std::size_t first = 0; first < blocks_; first = bad_ + 1) {
        bad_ = blocks_;
        compute(first, log ? &*log : nullptr);
        if (bad_ < blocks_)
            raiseFirst(rangeOf(bad_));
    }
    return std::move(failures_);
}

/// The blocks from `first` on. Nothing may leave a parallel region by an exception, and which of several failures comes
/// first depends on the threads: with OnFailure::raise a failing block is only marked, and looked at again afterwards.
void Evaluation::compute(std::size_t first, qxutil::RunLog* log)
{
    qxbase::ParallelException failure;
    const int team = threads();
    std::atomic<std::size_t> done{first * options_.block};
#pragma omp parallel num_threads(team) if (team > 1)
    {
        std::optional<Lease> lease;
        const bool reports = log != nullptr && omp_get_thread_num() == 0;
#pragma omp for schedule(dynamic)
        for (std::size_t b = first; b < blocks_; ++b) {
            if (b > bad_ || failure.isStored())
                continue;
            try {
                throwIfCancelled();
                if (!lease)
                    lease.emplace(*this);
                block(**lease, b);
                const std::size_t sum = done += rangeOf(b).count;
                if (reports)
                    log->setProgress(static_cast<double>(sum));
            } catch (...) {
                failure.storeCurrent();
            }
        }
    }
    failure.throwException();
    if (log != nullptr && bad_ == blocks_)
        log->setProgress(static_cast<double>(points_));
}

void Evaluation::block(Worker& worker, std::size_t number)
{
    const Range range = rangeOf(number);
    worker.setPoints(columns_, range);
    std::vector<std::size_t> failing;
    if (set_ == nullptr || !together(worker, range, failing)) {
        failing.clear();
        for (std::size_t k = 0; k < jobs_.size(); ++k)
            if (!attempt(worker, k, range))
                failing.push_back(k);
    }
    if (failing.empty())
        return;
    if (options_.onFailure == OnFailure::nan)
        return list(worker, failing, range);
    std::size_t known = bad_;
    while (number < known && !bad_.compare_exchange_weak(known, number)) {
    }
}

/// All jobs at once; false when that cannot tell which of them fail.
bool Evaluation::together(Worker& worker, Range range, std::vector<std::size_t>& failing)
{
    try {
        set_->eval(worker.asEvaluator, worker.cache, flags_, worker.values, options_.run);
        for (std::size_t k = 0; k < jobs_.size(); ++k)
            if (!store(k, worker.values[k], range))
                failing.push_back(k);
        return true;
    } catch (const qxbase::CancelException&) {
        throw;
    } catch (const qxbase::Exception&) {
        return false;
    }
}

/// One job at the points that the worker has; false if it fails at any of them.
bool Evaluation::attempt(Worker& worker, std::size_t job, Range range) const
{
    try {
        return store(job, worker.evaluate(*jobs_[job].item->tree, flags_, options_.run), range);
    } catch (const qxbase::CancelException&) {
        throw;
    } catch (const qxbase::Exception&) {
        return false;
    }
}

bool Evaluation::attemptAt(Worker& worker, std::size_t job, Range range) const
{
    throwIfCancelled();
    worker.setPoints(columns_, range);
    return attempt(worker, job, range);
}

bool Evaluation::store(std::size_t job, const ValRepPtr& value, Range range) const
{
    if (value->isNaN())
        return false;
    return std::visit(
        [&](const auto& target) {
            return storeNumbers(value, target.data() + range.first, range.count, options_.requireFinite);
        },
        jobs_[job].target.get());
}

/// Halves a range where a job fails until the points that fail stand alone: calls found(point) for them in ascending order
/// until it answers false, and tells whether it never did. All other points have got their values.
template <class Found>
bool Evaluation::narrow(Worker& worker, std::size_t job, Range range, const Found& found) const
{
    if (range.count == 1)
        return found(range.first);
    const std::size_t half = range.count / 2;
    for (const Range part : {Range{range.first, half}, Range{range.first + half, range.count - half}})
        if (!attemptAt(worker, job, part) && !narrow(worker, job, part, found))
            return false;
    return true;
}

/// Writes NaN at the failing points of a block and keeps their stories.
void Evaluation::list(Worker& worker, const std::vector<std::size_t>& failing, Range range)
{
    const auto comesFirst = [](const Failure& a, const Failure& b) { return a.point < b.point; };
    Failures found;
    const bool wanted = [&] {
        const std::lock_guard hold(mutex_);
        return failures_.first.size() < Failures::listed || range.first < failures_.first.back().point;
    }();
    for (const std::size_t k : failing) {
        std::size_t listed = 0;
        narrow(worker, k, range, [&](std::size_t point) {
            std::visit([&](const auto& target) { target[point] = kNaN; }, jobs_[k].target.get());
            ++found.count;
            if (wanted && listed < Failures::listed) {
                found.first.push_back({point, jobs_[k].formula, story(worker, k, point)});
                ++listed;
            }
            return true;
        });
    }
    std::stable_sort(found.first.begin(), found.first.end(), comesFirst);

    const std::lock_guard hold(mutex_);
    failures_.count += found.count;
    std::vector<Failure> all;
    all.reserve(failures_.first.size() + found.first.size());
    std::merge(std::move_iterator(failures_.first.begin()), std::move_iterator(failures_.first.end()),
               std::move_iterator(found.first.begin()), std::move_iterator(found.first.end()), std::back_inserter(all),
               comesFirst);
    if (all.size() > Failures::listed)
        all.erase(all.begin() + Failures::listed, all.end());
    failures_.first = std::move(all);
}

/// Raises the story of the first failing job at its first failing point in a block. If no point fails by itself, all have
/// got their values and nothing is raised.
void Evaluation::raiseFirst(Range range)
{
    const Lease lease(*this);
    for (std::size_t k = 0; k < jobs_.size(); ++k)
        if (!attemptAt(*lease, k, range))
            narrow(*lease, k, range, [&](std::size_t point) -> bool { throw story(*lease, k, point); });
}

qxbase::Exception Evaluation::story(Worker& worker, std::size_t job, std::size_t point) const
{
    const Item& item = *jobs_[job].item;
    qxbase::Exception told;
    try {
        worker.setPoints(columns_, {point, 1});
        const ValRepPtr value = worker.evaluate(*item.tree, flags_, options_.run);
        value->throwError();
        raiseNumber(job, value);
    } catch (const qxbase::CancelException&) {
        throw;
    } catch (const qxbase::Exception& e) {
        told = e;
    }
    qxbase::ExceptionArgs where{{"Point", std::to_string(point)}};
    for (const std::size_t v : item.variables)
        where.emplace_back(names_.variables[v], numberText(columns_[v]->at(point)));
    where.emplace_back("Expression", item.tree->getExpr());
    told.add("formulas", __LINE__, "Evaluation_failed_at_point", where);
    return told;
}

/// What is wrong with a value that the engine gave.
void Evaluation::raiseNumber(std::size_t job, const ValRepPtr& value) const
{
    cplx z;
    value->copyToArray(&z, 1, 1);
    const bool real = std::holds_alternative<std::span<double>>(jobs_[job].target.get());
    if (isBad(z.real(), false) || isBad(z.imag(), false))
        QX_RAISE("formulas", "Unexpected_NaN");
    if (real && z.imag() != 0.0)
        QX_RAISE("formulas", "Complex_number_in_real_expression", "Value", numberText(z));
    QX_RAISE("formulas", "Infinite_value", "Value", numberText(z));
}

} // namespace qx
