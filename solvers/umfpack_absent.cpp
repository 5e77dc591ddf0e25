// SPDX-License-Identifier: LicenseRef-qxkernel
// The driver in a build without UMFPACK: objects can be made, and whatever needs a factorisation says why there is none.

#include "qxexception.hpp"
#include "umfpack.hpp"

namespace {

[[noreturn]] void raiseAbsent()
{
    QX_RAISE("umfpack", "Internal_error_in_UMFPACK", "Reason", "This library was built without UMFPACK (QX_WITH_UMFPACK=OFF)");
}

} // namespace

Umfpack::Umfpack(qxutil::RunInfo& run, double dropTol_, double threshold_, double allocInit_)
    : runInfo(run), dropTol(dropTol_), threshold(threshold_), allocInit(allocInit_), info{}, control{}
{
}

Umfpack::Umfpack(qxutil::RunInfo& run) : Umfpack(run, 0.0, 0.1, 0.7) {}

Umfpack::~Umfpack() = default;

void Umfpack::clear() {}
void Umfpack::setTranspose(bool value) { transpose = value; }

void Umfpack::init(Sparse&, bool, bool, bool, bool) { raiseAbsent(); }
int Umfpack::solve(const Matrix<1>&, Matrix<1>&) { raiseAbsent(); }
int Umfpack::solve(const Array<double, 1>&, Array<double, 1>&) { raiseAbsent(); }
int Umfpack::solve(const Array<std::complex<double>, 1>&, Array<std::complex<double>, 1>&) { raiseAbsent(); }
int Umfpack::checkTolerances(const Matrix<1>&, const Matrix<1>&, double, double, double&, double&) { raiseAbsent(); }
void Umfpack::getLuFactorization(Sparse&, Sparse&, Sparse&, Sparse&, Sparse&) const { raiseAbsent(); }
