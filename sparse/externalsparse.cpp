#include "externalsparse.hpp"

ExternalSparse::ExternalSparse() = default;
ExternalSparse::~ExternalSparse() = default;
void ExternalSparse::clear() {}
