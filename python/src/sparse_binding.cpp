// SPDX-License-Identifier: LicenseRef-qxkernel
#include "sparse_binding.hpp"

#include "failures.hpp"
#include "gil.hpp"
#include "numpy_arrays.hpp"

#include "matrixmarket.hpp"

#include <pybind11/stl.h>

#include <cstdint>
#include <limits>

namespace py = pybind11;

using Complex = std::complex<double>;

namespace {

/// A new matrix from an operation without the GIL. Its columns are sorted at once: what sorts later would move entries
/// under the views that were handed out.
template <class Operation>
Sparse withoutGil(const Operation& operation)
{
    const ReleasedGil released;
    Sparse result = operation();
    result.format(FormSorted, false);
    return result;
}

// --- Matrices in ------------------------------------------------------------------------------------------------------

[[noreturn]] void refuse(const std::string& reason) { raiseError("Invalid_sparse_matrix", "Reason", reason); }

/// Copies offsets and rows of any integer type into a store, checking what the kernels rely on, and tells whether each
/// column ascends.
template <class T, class I>
bool copyStructure(llsparse<T>& store, const I* offsets, const I* rows)
{
    if (offsets[0] != 0)
        refuse("the offsets do not begin at 0");
    bool sorted = true;
    for (unsigned long j = 0; j < store.n; ++j) {
        if (offsets[j + 1] < offsets[j] || static_cast<unsigned long>(offsets[j + 1]) > store.nzmax)
            refuse("the offsets decrease, or end beyond the entries, at " + std::to_string(j + 1));
        store.colPtr[j + 1] = static_cast<unsigned long>(offsets[j + 1]);
        for (auto k = offsets[j]; k < offsets[j + 1]; ++k) {
            const I row = rows[k];
            if (row < 0 || static_cast<unsigned long>(row) >= store.m)
                refuse("index " + std::to_string(row) + " at entry " + std::to_string(k) + " is not below " +
                       std::to_string(store.m));
            store.row[k] = static_cast<unsigned long>(row);
            sorted = sorted && (k == offsets[j] || rows[k - 1] < row);
        }
    }
    return sorted;
}

template <class T>
Sparse fromCompressed(unsigned long m, unsigned long n, const py::array& offsets, const py::array& rows,
                      const py::array& values)
{
    const auto source = Vector<T>::ensure(values);
    if (!source)
        throw py::error_already_set();
    if (offsets.size() != static_cast<py::ssize_t>(n) + 1)
        refuse("there are " + std::to_string(offsets.size()) + " offsets for " + std::to_string(n) + " columns");
    if (rows.size() < source.size())
        refuse("there are " + std::to_string(source.size()) + " values and " + std::to_string(rows.size()) + " indices");

    const auto store = boost::make_shared<llsparse<T>>(m, n, static_cast<unsigned long>(source.size()));
    store->colPtr[0] = 0;
    const auto fill = [&](auto index) {
        using I = decltype(index);
        const auto o = Vector<I>::ensure(offsets), r = Vector<I>::ensure(rows);
        if (!o || !r)
            throw py::error_already_set();
        return copyStructure(*store, o.data(), r.data());
    };
    const bool sorted = rows.itemsize() == 4 && offsets.itemsize() == 4 ? fill(std::int32_t()) : fill(std::int64_t());
    std::copy_n(source.data(), store->nnz(), store->val);
    store->form = sorted ? FormSorted : FormNone;
    Sparse result(store);
    result.format(FormSorted, false);
    return result;
}

/// A matrix in compressed columns, or in compressed rows (byRows), of m rows and n columns.
Sparse compressed(unsigned long m, unsigned long n, const py::array& offsets, const py::array& indices,
                  const py::array& values, bool byRows)
{
    if (byRows)
        std::swap(m, n);
    Sparse result = isComplex(values) ? fromCompressed<Complex>(m, n, offsets, indices, values)
                                      : fromCompressed<double>(m, n, offsets, indices, values);
    if (byRows)
        result.setSymm(RowStored);
    return byRows ? withoutGil([&] { return convertToCol(result); }) : result;
}

Array<unsigned long, 1> indexArray(const py::array& values)
{
    const auto source = Vector<std::int64_t>::ensure(values);
    if (!source)
        throw py::error_already_set();
    Array<unsigned long, 1> result(static_cast<unsigned long>(source.size()));
    for (py::ssize_t i = 0; i < source.size(); ++i) {
        if (source.data()[i] < 0)
            refuse("index " + std::to_string(source.data()[i]) + " at entry " + std::to_string(i) + " is negative");
        result[static_cast<unsigned long>(i)] = static_cast<unsigned long>(source.data()[i]);
    }
    return result;
}

Sparse fromTriplets(const py::array& rows, const py::array& columns, const py::array& values, unsigned long m,
                    unsigned long n)
{
    const auto i = indexArray(rows), j = indexArray(columns);
    const Matrix<1> v = toMatrix1(values);
    return withoutGil([&] {
        Sparse result;
        result.triplet2sparse(i, j, v, m, n);
        return result;
    });
}

// --- Matrices out -----------------------------------------------------------------------------------------------------

/// A read-only view that keeps the matrix alive.
template <class T>
py::array view(const T* data, unsigned long count, const py::object& owner)
{
    py::array result(py::dtype::of<T>(), {static_cast<py::ssize_t>(count)}, {static_cast<py::ssize_t>(sizeof(T))}, data,
                     owner);
    result.attr("flags").attr("writeable") = false;
    return result;
}

/// (indptr, indices, data) of a store by columns, without a copy.
py::tuple views(const py::object& self)
{
    const Sparse& A = self.cast<const Sparse&>();
    const auto indices = [](const unsigned long* p) { return reinterpret_cast<const std::int64_t*>(p); };
    const unsigned long nnz = A.getNnz();
    return py::make_tuple(view(indices(A.getColPtr()), A.getN() + 1, self), view(indices(A.getRow()), nnz, self),
                          A.isReal() ? view(A.getDoubleVal(), nnz, self) : view(A.getDcmplxVal(), nnz, self));
}

// --- Operations -------------------------------------------------------------------------------------------------------

Trans_t transOf(const std::string& name)
{
    if (name == "N")
        return NoTrans;
    if (name == "T")
        return Trans;
    if (name == "H")
        return ConjTrans;
    throw py::value_error("trans must be 'N', 'T' or 'H', not '" + name + "'");
}

/// op(A) x for one vector.
py::array product(const Sparse& A, const py::array& x, const std::string& trans)
{
    const Trans_t op = transOf(trans);
    const Matrix<1> vector = toMatrix1(x);
    Matrix<1> y;
    {
        const ReleasedGil released;
        y = AMulx(A, vector, op);
    }
    return toNumpy(y);
}

/// Relaxation of A x = b. Works on a copy of the matrix, whose entries are rearranged around the diagonal.
class Relaxation
{
public:
    explicit Relaxation(const Sparse& A)
    {
        const ReleasedGil released;
        if (A.isReal())
            A_ = Sparse(boost::make_shared<llsparse<double>>(*A.getptrD()));
        else
            A_ = Sparse(boost::make_shared<llsparse<Complex>>(*A.getptrZ()));
        A_.format(FormDiag, true);
    }

    /// Sweeps of successive over-relaxation, or of Jacobi's method, from x; the result is new.
    py::array sweep(const py::array& b, const py::array& x, double omega, int sweeps, bool reverse, bool jacobi) const;

private:
    Sparse A_;
};

py::array Relaxation::sweep(const py::array& b, const py::array& x, double omega, int sweeps, bool reverse,
                            bool jacobi) const
{
    if (sweeps < 0)
        throw py::value_error("the number of sweeps must not be negative");
    const Matrix<1> right = toMatrix1(b);
    Matrix<1> iterate, residual;
    iterate.trueCopy(toMatrix1(x), true);
    {
        const ReleasedGil released;
        for (int k = 0; k < sweeps; ++k) {
            residual = AMulx(A_, iterate, NoTrans);
            yPlusaMulx(residual, -1.0, right);
            if (jacobi)
                JacobiIts(A_, residual, iterate, omega);
            else
                SORIt(A_, residual, iterate, omega, reverse);
        }
    }
    return toNumpy(iterate);
}

} // namespace

Sparse expanded(const Sparse& A)
{
    if (A.getSymm() == Unsymmetric)
        return A;
    if (A.getSymm() == RowStored)
        return convertToCol(A);
    Sparse lower(A), mirrored = transpose(A, A.getSymm() == Hermitian ? ConjTrans : Trans);
    lower.setSymm(Unsymmetric);
    mirrored.setSymm(Unsymmetric);
    Sparse sum = lower + mirrored;
    sum.format(FormSorted, false);
    return sum;
}

void bindSparse(py::module_& module)
{
    py::class_<Sparse>(module, "SparseStore")
        .def_static("compressed", &compressed)
        .def_static("from_triplets", &fromTriplets)
        .def_static("read_matrix_market",
                    [](const std::string& path) { return withoutGil([&] { return readMatrixMarket(path); }); })
        .def("write_matrix_market",
             [](const Sparse& A, const std::string& path) {
                 const ReleasedGil released;
                 writeMatrixMarket(path, A);
             })
        .def_property_readonly("m", &Sparse::getM)
        .def_property_readonly("n", &Sparse::getN)
        .def_property_readonly("nnz", &Sparse::getNnz)
        .def_property_readonly("real", &Sparse::isReal)
        .def("views", [](const py::object& self) { return views(self); })
        .def("multiply", &product)
        .def("matmul", [](const Sparse& A, const Sparse& B) { return withoutGil([&] { return A * B; }); })
        .def("add",
             [](const Sparse& A, const Sparse& B, Complex b) { return withoutGil([&] { return add(B, b, A); }); })
        .def("scaled", [](const Sparse& A, Complex a) { return withoutGil([&] { return a * A; }); })
        .def("transposed",
             [](const Sparse& A, bool conjugate) {
                 return withoutGil([&] { return transpose(A, conjugate ? ConjTrans : Trans); });
             });
    py::class_<Relaxation>(module, "RelaxationStore")
        .def(py::init<const Sparse&>())
        .def("sweep", &Relaxation::sweep);
}
