#include "parallelsparse.hpp"

ParallelSparse::ParallelSparse() = default;
ParallelSparse::~ParallelSparse() = default;
void ParallelSparse::clear() {}
