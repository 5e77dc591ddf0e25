#include "dense/qzretry_detail.hpp"

namespace qxarray_detail {

int retryQZ(int info, const DggevCall&, const double*, const double*) { return info; }
int retryQZ(int info, const DggevxCall&, const double*, const double*) { return info; }

} // namespace qxarray_detail
