// SPDX-License-Identifier: LicenseRef-qxkernel
#include "direct_binding.hpp"

#include "gil.hpp"
#include "interruptible.hpp"
#include "numpy_arrays.hpp"
#include "sparse_binding.hpp"

#include "constrained.hpp"
#include "prop.hpp"
#include "qxnull.hpp"
#include "umfpack.hpp"

#include <pybind11/stl.h>

#include <mutex>
#include <span>

namespace py = pybind11;

using Complex = std::complex<double>;

namespace {

/// Factors of a square matrix. Any thread may solve: one at a time, the others wait.
class Factor
{
public:
    Factor(const Sparse& A, double dropTol, double threshold, bool scale, const py::object& progress,
           const std::shared_ptr<CancelToken>& cancel)
        : real_(A.isReal()), size_(A.getM())
    {
        Sparse matrix = expanded(A);
        run_.execute({progress, cancel}, [&](qxutil::RunInfo& run) {
            solver_ = std::make_unique<Umfpack>(run, dropTol, threshold, 0.7);
            solver_->init(matrix, true, false, false, scale);
        });
    }

    unsigned long size() const { return size_; }
    bool isReal() const { return real_; }

    /// A x = b by columns of b (n) or (n, k); trans as for the matrix.
    py::array solve(const py::array& b, const std::string& trans)
    {
        if (trans != "N" && trans != "T" && trans != "H")
            throw py::value_error("trans must be 'N', 'T' or 'H', not '" + trans + "'");
        if (b.ndim() != 1 && b.ndim() != 2)
            throw py::value_error("the right-hand side must have 1 or 2 dimensions, not " + std::to_string(b.ndim()));
        if (b.shape(0) != static_cast<py::ssize_t>(size_))
            throw py::value_error("the right-hand side has " + std::to_string(b.shape(0)) + " rows, the matrix " +
                                  std::to_string(size_));
        return real_ && !isComplex(b) ? solveColumns<double>(b, trans) : solveColumns<Complex>(b, trans);
    }

    /// L, U, P, Q, R of P R A Q = L U.
    py::tuple factors()
    {
        Sparse L, U, P, Q, R;
        {
            const ReleasedGil released;
            const std::lock_guard lock(mutex_);
            solver_->getLuFactorization(L, U, P, Q, R);
            for (Sparse* factor : {&L, &U, &P, &Q, &R})
                factor->format(FormSorted, false);
        }
        return py::make_tuple(L, U, P, Q, R);
    }

private:
    template <class T>
    py::array solveColumns(const py::array& b, const std::string& trans)
    {
        const auto source = ColumnMajor<T>::ensure(b);
        if (!source)
            throw py::error_already_set();
        py::array_t<T, py::array::f_style> result(std::vector<py::ssize_t>(b.shape(), b.shape() + b.ndim()));
        const unsigned long columns = b.ndim() == 2 ? static_cast<unsigned long>(b.shape(1)) : 1;
        const T* from = source.data();
        T* to = result.mutable_data();
        {
            const ReleasedGil released;
            const std::lock_guard lock(mutex_);
            solver_->setTranspose(trans != "N");
            Array<T, 1> right(size_), x(size_);
            for (unsigned long j = 0; j < columns; ++j, from += size_, to += size_) {
                for (unsigned long i = 0; i < size_; ++i)
                    right[i] = trans == "H" ? conjugated(from[i]) : from[i];
                solver_->solve(right, x);
                for (unsigned long i = 0; i < size_; ++i)
                    to[i] = trans == "H" ? conjugated(x[i]) : x[i];
            }
        }
        return result;
    }

    static double conjugated(double x) { return x; }
    static Complex conjugated(const Complex& x) { return std::conj(x); }

    Run run_; // lent to the solver for life
    bool real_;
    unsigned long size_;
    std::mutex mutex_;
    std::unique_ptr<Umfpack> solver_;
};

/// Bases for constraints N^H u = b, N (unknowns, constraints): (Null, Compl, Range).
py::tuple nullSpace(const Sparse& N, bool orthonormal, const py::object& progress,
                    const std::shared_ptr<CancelToken>& cancel)
{
    const Sparse columns = expanded(N);
    Sparse Null, Compl, Range, none;
    runInterruptible({progress, cancel}, [&](qxutil::RunInfo& run) {
        qxNull(run, columns, Sparse(), Sparse(), true, Null, true, Compl, true, Range, none, false, none, false, none,
               false, orthonormal ? NullFunOrthonormal : NullFunSparse, false);
        for (Sparse* basis : {&Null, &Compl, &Range})
            basis->format(FormSorted, false);
    });
    return py::make_tuple(Null, Compl, Range);
}

template <class T>
py::tuple solveConstrainedAs(const Sparse& K, const py::array& f, const Sparse& N, const py::array& g, bool orthonormal,
                             const py::object& progress, const std::shared_ptr<CancelToken>& cancel)
{
    const Array<T, 1> force = toArray1<T>(f), given = toArray1<T>(g);
    qx::Constrained<T> result;
    runInterruptible({progress, cancel}, [&](qxutil::RunInfo& run) {
        qx::NullSpaceOptions options;
        options.orthonormal = orthonormal;
        options.run = &run;
        result = qx::solveConstrained(K, std::span<const T>(force.data(), force.size()), N,
                                      std::span<const T>(given.data(), given.size()), options);
    });
    return py::make_tuple(py::array_t<T>(static_cast<py::ssize_t>(result.u.size()), result.u.data()), result.residual,
                          result.dropped);
}

/// (u, residual, dropped constraints) of K u = f under N^H u = g.
py::tuple solveConstrainedSystem(const Sparse& K, const py::array& f, const Sparse& N, const py::array& g,
                                 bool orthonormal, const py::object& progress,
                                 const std::shared_ptr<CancelToken>& cancel)
{
    const bool real = K.isReal() && N.isReal() && !isComplex(f) && !isComplex(g);
    return real ? solveConstrainedAs<double>(K, f, N, g, orthonormal, progress, cancel)
                : solveConstrainedAs<Complex>(K, f, N, g, orthonormal, progress, cancel);
}

} // namespace

void bindDirect(py::module_& module)
{
    py::class_<Factor>(module, "FactorStore")
        .def(py::init<const Sparse&, double, double, bool, const py::object&, const std::shared_ptr<CancelToken>&>())
        .def_property_readonly("size", &Factor::size)
        .def_property_readonly("real", &Factor::isReal)
        .def("solve", &Factor::solve)
        .def("factors", &Factor::factors);
    module.def("null_space", &nullSpace);
    module.def("solve_constrained", &solveConstrainedSystem);
}
