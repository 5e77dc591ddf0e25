// Assemble, constrain, solve: -u'' = 2 on (0, 1) with u(0) = u(1) = 0.
#include <constrained.hpp>
#include <sparse.hpp>

#include <cstdio>
#include <vector>

int main()
{
    const unsigned long n = 5;        // nodes 0, 1/4, ..., 1
    const double h = 1.0 / (n - 1);
    std::vector<unsigned long> row, column;
    std::vector<double> entry, load(n);
    for (unsigned long e = 0; e + 1 < n; ++e)
        for (unsigned long i : {e, e + 1}) {
            load[i] += 2 * h / 2;
            for (unsigned long j : {e, e + 1}) {
                row.push_back(i);
                column.push_back(j);
                entry.push_back(i == j ? 1 / h : -1 / h);
            }
        }
    Sparse K;
    K.triplet2sparse(row, column, entry, n, n); // entries of one place add up

    // One column for each constraint: u_0 = 0, u_4 = 0.
    Sparse N;
    N.triplet2sparse({0, n - 1}, {0, 1}, std::vector<double>{1, 1}, n, 2);
    const auto solution = qx::solveConstrained(K, load, N, std::vector<double>{0, 0});

    for (const double u : solution.u)
        std::printf("%.4f\n", u);         // x (1 - x), exact at the nodes
    std::printf("%zu unknowns were left\n", solution.unknowns);
}
