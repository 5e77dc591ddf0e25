// SPDX-License-Identifier: LicenseRef-qxkernel
// The native methods of qx.HeatProblem.
//
// Finite volumes for -div(k grad u) = q in the unit square, u given at the edge, with mesh width h = 1/(n+1) and unknowns
// u_ij at (i h, j h), i, j = 1 .. n:
//
//     sum over the four neighbours of k_face (u_ij - u_neighbour) = h^2 q_ij
//
// with k at the middle of the face between them. Second order in h.
#include "support.hpp"

#include <callback.hpp>
#include <formulas.hpp>
#include <qxrun.hpp>
#include <umfpack.hpp>

#include <algorithm>

namespace {

using namespace examples;

/// Tells Java how far a solve is, and stops it when its thread is interrupted.
class JavaListener : public qxutil::RunListener
{
public:
    explicit JavaListener(JNIEnv* env) : env_(env) {}
    void watch(qxutil::RunInfo& run) { run_ = &run; }

    void onProgress(const std::string&, double fraction) override
    {
        Callback::solverCallback(static_cast<int>(100 * fraction));
        if (isInterrupted())
            run_->cancel();
    }

private:
    /// Thread.currentThread().isInterrupted()
    bool isInterrupted() const
    {
        jclass type = env_->FindClass("java/lang/Thread");
        jmethodID current = env_->GetStaticMethodID(type, "currentThread", "()Ljava/lang/Thread;");
        jmethodID interrupted = env_->GetMethodID(type, "isInterrupted", "()Z");
        jobject thread = env_->CallStaticObjectMethod(type, current);
        const bool yes = !env_->ExceptionCheck() && env_->CallBooleanMethod(thread, interrupted);
        env_->DeleteLocalRef(thread);
        env_->DeleteLocalRef(type);
        return yes && !env_->ExceptionCheck();
    }

    JNIEnv* env_;
    qxutil::RunInfo* run_ = nullptr;
};

/// The values of a formula of x and y.
std::vector<double> valuesOf(const std::string& expression, const std::vector<double>& x, const std::vector<double>& y)
{
    qx::Formulas formulas({"x", "y"});
    const qx::Formula formula = formulas.add(expression);
    qx::Points points(x.size());
    points.set("x", x).set("y", y);
    std::vector<double> values(x.size());
    formulas.compile().evaluate(points, formula, values, {.keepReal = true});
    return values;
}

struct Neighbour
{
    int i, j;
};
constexpr Neighbour neighbours[] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};

struct NativeHeat
{
    NativeHeat(int size, const std::string& conductivity, const std::string& source, const std::string& edge) : n(size)
    {
        if (n < 1 || n > 4000)
            throw qxbase::Exception("heat", __LINE__, "Illegal_number_of_cells", "n", n);
        const double h = 1.0 / (n + 1);
        // Points: the cells, then for each cell and neighbour the middle of the face and the neighbour.
        std::vector<double> x, y, faceX, faceY, otherX, otherY;
        for (int j = 1; j <= n; ++j)
            for (int i = 1; i <= n; ++i) {
                x.push_back(i * h), y.push_back(j * h);
                for (const auto& [di, dj] : neighbours) {
                    faceX.push_back((i + 0.5 * di) * h), faceY.push_back((j + 0.5 * dj) * h);
                    otherX.push_back((i + di) * h), otherY.push_back((j + dj) * h);
                }
            }
        const std::vector<double> q = valuesOf(source, x, y), k = valuesOf(conductivity, faceX, faceY),
                                  given = valuesOf(edge, otherX, otherY);

        std::vector<unsigned long> rows, columns;
        std::vector<double> entries;
        rhs.resize(static_cast<unsigned long>(n) * n);
        std::size_t face = 0;
        for (int j = 1; j <= n; ++j)
            for (int i = 1; i <= n; ++i) {
                const unsigned long row = number(i, j);
                double diagonal = 0;
                rhs[row] = h * h * q[row];
                for (const auto& [di, dj] : neighbours) {
                    diagonal += k[face];
                    if (isInside(i + di, j + dj)) {
                        rows.push_back(row), columns.push_back(number(i + di, j + dj));
                        entries.push_back(-k[face]);
                    } else {
                        rhs[row] += k[face] * given[face];
                    }
                    ++face;
                }
                rows.push_back(row), columns.push_back(row), entries.push_back(diagonal);
            }
        matrix.triplet2sparse(rows, columns, entries, rhs.size(), rhs.size());
    }

    bool isInside(int i, int j) const { return i >= 1 && j >= 1 && i <= n && j <= n; }
    unsigned long number(int i, int j) const { return static_cast<unsigned long>(j - 1) * n + (i - 1); }

    int n;
    Sparse matrix;
    Array<double, 1> rhs;
};

} // namespace

extern "C" {

JNIEXPORT jlong JNICALL Java_qx_HeatProblem_assemble(JNIEnv* env, jclass, jint n, jstring conductivity, jstring source,
                                                     jstring edge)
{
    return nativeMethod(env, [&] {
        return addressOf(new NativeHeat(n, text(env, conductivity), text(env, source), text(env, edge)));
    });
}

JNIEXPORT void JNICALL Java_qx_HeatProblem_destroy(JNIEnv*, jclass, jlong address) { delete &objectAt<NativeHeat>(address); }

JNIEXPORT jint JNICALL Java_qx_HeatProblem_unknowns(JNIEnv*, jclass, jlong address)
{
    return static_cast<jint>(objectAt<NativeHeat>(address).rhs.size());
}

JNIEXPORT jlong JNICALL Java_qx_HeatProblem_entries(JNIEnv*, jclass, jlong address)
{
    return static_cast<jlong>(objectAt<NativeHeat>(address).matrix.getNnz());
}

JNIEXPORT jobjectArray JNICALL Java_qx_HeatProblem_solve(JNIEnv* env, jclass, jlong address)
{
    return nativeMethod(env, [&] {
        auto& heat = objectAt<NativeHeat>(address);
        JavaListener listener(env);
        qxutil::RunInfo run(&listener);
        listener.watch(run);
        Umfpack solver(run);
        solver.init(heat.matrix, false, false, false, true);
        Array<double, 1> u;
        solver.solve(heat.rhs, u);
        Array<double, 2> field(static_cast<unsigned long>(heat.n), static_cast<unsigned long>(heat.n));
        std::copy(u.begin(), u.end(), field.begin()); // i runs fastest in both
        return qxarray::toJavaNew(env, field);
    });
}

} // extern "C"
