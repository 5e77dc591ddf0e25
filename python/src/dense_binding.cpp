// SPDX-License-Identifier: LicenseRef-qxkernel
#include "dense_binding.hpp"

#include "gil.hpp"
#include "numpy_arrays.hpp"

#include "arrayutil.hpp"
#include "krylov.hpp"

namespace py = pybind11;

using Complex = std::complex<double>;

namespace {

constexpr int raiseOnFailure = 3;

template <class T>
void checkSquare(const Array<T, 2>& A, const char* name)
{
    if (A.extent(0) != A.extent(1))
        throw py::value_error(std::string(name) + " must be square, not " + std::to_string(A.extent(0)) + " by " +
                              std::to_string(A.extent(1)));
}

const char* job(bool wanted) { return wanted ? "V" : "N"; }

/// The complex vectors that a real routine packs as (real part, imaginary part) of a conjugate pair.
Array<Complex, 2> unpacked(const Array<double, 2>& V, const Array<double, 1>& imaginary)
{
    const unsigned long n = V.extent(0);
    Array<Complex, 2> result(n, V.extent(1));
    for (unsigned long j = 0; j < V.extent(1); ++j) {
        const bool pair = imaginary[j] != 0.0 && j + 1 < V.extent(1);
        for (unsigned long i = 0; i < n; ++i) {
            result(i, j) = pair ? Complex(V(i, j), V(i, j + 1)) : Complex(V(i, j));
            if (pair)
                result(i, j + 1) = std::conj(result(i, j));
        }
        j += pair;
    }
    return result;
}

py::tuple realEigenvalues(const py::array& a, bool left, bool right)
{
    Array<double, 2> A = toArray2<double>(a), VL, VR;
    checkSquare(A, "A");
    Array<double, 1> wr, wi;
    {
        const ReleasedGil released;
        qxarray::eig(job(left), job(right), A, wr, wi, VL, VR, raiseOnFailure);
    }
    Array<Complex, 1> w(wr.size());
    for (unsigned long i = 0; i < wr.size(); ++i)
        w[i] = Complex(wr[i], wi[i]);
    return py::make_tuple(toNumpy(w), toNumpy(unpacked(VL, wi)), toNumpy(unpacked(VR, wi)));
}

py::tuple complexEigenvalues(const py::array& a, bool left, bool right)
{
    Array<Complex, 2> A = toArray2<Complex>(a), VL, VR;
    checkSquare(A, "A");
    Array<Complex, 1> w;
    {
        const ReleasedGil released;
        qxarray::eig(job(left), job(right), A, w, VL, VR, raiseOnFailure);
    }
    return py::make_tuple(toNumpy(w), toNumpy(VL), toNumpy(VR));
}

/// (alpha, beta, left, right) of A x = lambda B x, lambda = alpha / beta.
py::tuple realPencil(const py::array& a, const py::array& b, bool left, bool right)
{
    Array<double, 2> A = toArray2<double>(a), B = toArray2<double>(b), VL, VR;
    checkSquare(A, "A");
    checkSquare(B, "B");
    Array<double, 1> re, im, beta;
    {
        const ReleasedGil released;
        qxarray::eig(job(left), job(right), A, B, re, im, beta, VL, VR, raiseOnFailure);
    }
    Array<Complex, 1> alpha(re.size());
    for (unsigned long i = 0; i < re.size(); ++i)
        alpha[i] = Complex(re[i], im[i]);
    return py::make_tuple(toNumpy(alpha), toNumpy(beta), toNumpy(unpacked(VL, im)), toNumpy(unpacked(VR, im)));
}

py::tuple complexPencil(const py::array& a, const py::array& b, bool left, bool right)
{
    Array<Complex, 2> A = toArray2<Complex>(a), B = toArray2<Complex>(b), VL, VR;
    checkSquare(A, "A");
    checkSquare(B, "B");
    Array<Complex, 1> alpha, beta;
    {
        const ReleasedGil released;
        qxarray::eig(job(left), job(right), A, B, alpha, beta, VL, VR, raiseOnFailure);
    }
    return py::make_tuple(toNumpy(alpha), toNumpy(beta), toNumpy(VL), toNumpy(VR));
}

Matrix<2> toMatrix2(const py::array& values)
{
    if (isComplex(values))
        return Matrix<2>(boost::make_shared<Array<Complex, 2>>(toArray2<Complex>(values)));
    return Matrix<2>(boost::make_shared<Array<double, 2>>(toArray2<double>(values)));
}

/// (x, whether it has converged, flops)
py::tuple solveByGmres(const py::array& a, const py::array& b, const py::array& start, double tol, int restart,
                       int maxIterations)
{
    const Matrix<2> A = toMatrix2(a);
    const Matrix<1> right = toMatrix1(b);
    Matrix<1> x = toMatrix1(start);
    double flops = 0.0;
    int status = 0;
    {
        const ReleasedGil released;
        status = gmres(A, right, x, tol, restart, 1.0, maxIterations, flops);
    }
    return py::make_tuple(toNumpy(x), status > 0, flops);
}

} // namespace

void bindDense(py::module_& module)
{
    module.def("eig", [](const py::array& a, bool left, bool right) {
        return isComplex(a) ? complexEigenvalues(a, left, right) : realEigenvalues(a, left, right);
    });
    module.def("eig_pencil", [](const py::array& a, const py::array& b, bool left, bool right) {
        return isComplex(a) || isComplex(b) ? complexPencil(a, b, left, right) : realPencil(a, b, left, right);
    });
    module.def("gmres", &solveByGmres);
}
