// SPDX-License-Identifier: LicenseRef-qxkernel
// The native methods of qx.Formulas.
#include "support.hpp"

#include <callback.hpp>
#include <formulas.hpp>

#include <optional>

namespace {

using namespace examples;

struct NativeFormulas
{
    explicit NativeFormulas(const std::vector<std::string>& names) : variables(names), builder(names) {}

    std::vector<std::string> variables;
    qx::Formulas builder;
    std::vector<qx::Formula> formulas;
    std::optional<qx::Program> program; ///< made when something is evaluated
    bool callsJava = false;
};

/// Points of Java: a row for each, a column for each variable. Here the columns are contiguous, so they are lent.
class JavaPoints
{
public:
    JavaPoints(JNIEnv* env, jobjectArray rows, const NativeFormulas& f)
    {
        qxarray::toCpp(env, rows, numbers_);
        if (numbers_.extent(0) != 0 && numbers_.extent(1) != f.variables.size())
            throw qxbase::Exception("formulas", __LINE__, "Illegal_number_of_columns");
        points_.emplace(numbers_.extent(0));
        for (std::size_t j = 0; j < numbers_.extent(1); ++j)
            points_->set(f.variables[j], column(numbers_, j));
        options_.keepReal = true;
        if (f.callsJava) // one call for all points
            options_.block = std::max<std::size_t>(numbers_.extent(0), 1);
    }

    static std::span<double> column(Array<double, 2>& a, std::size_t j) { return {a.data() + j * a.extent(0), a.extent(0)}; }
    unsigned long count() const { return numbers_.extent(0); }
    const qx::Points& points() const { return *points_; }
    const qx::Options& options() const { return options_; }

private:
    Array<double, 2> numbers_;
    std::optional<qx::Points> points_;
    qx::Options options_;
};

const qx::Program& programOf(NativeFormulas& f)
{
    if (!f.program)
        f.program = f.builder.compile();
    return *f.program;
}

} // namespace

extern "C" {

JNIEXPORT jlong JNICALL Java_qx_Formulas_create(JNIEnv* env, jclass, jobjectArray variables)
{
    return nativeMethod(env, [&] { return addressOf(new NativeFormulas(texts(env, variables))); });
}

JNIEXPORT void JNICALL Java_qx_Formulas_destroy(JNIEnv*, jclass, jlong address)
{
    delete &objectAt<NativeFormulas>(address);
}

JNIEXPORT void JNICALL Java_qx_Formulas_define(JNIEnv* env, jclass, jlong address, jstring name, jstring expression)
{
    nativeMethod(env, [&] {
        auto& f = objectAt<NativeFormulas>(address);
        f.builder.define(text(env, name), text(env, expression));
        f.program.reset();
    });
}

JNIEXPORT void JNICALL Java_qx_Formulas_function(JNIEnv* env, jclass, jlong address, jstring javaName,
                                                 jobjectArray parameters, jobjectArray derivatives)
{
    nativeMethod(env, [&] {
        auto& f = objectAt<NativeFormulas>(address);
        const std::string name = text(env, javaName);
        f.builder.function(name, {.parameters = texts(env, parameters),
                                  .real =
                                      [name](qx::Arguments<double> args, std::span<double> out) {
                                          std::vector<const double*> in;
                                          for (const auto& arg : args)
                                              in.push_back(arg.data());
                                          Callback::requireSuccess(name, Callback::evalDblMat(name, in, out.size(), out.data()));
                                      },
                                  .derivatives = texts(env, derivatives)});
        f.callsJava = true;
        f.program.reset();
    });
}

JNIEXPORT jint JNICALL Java_qx_Formulas_add(JNIEnv* env, jclass, jlong address, jstring expression)
{
    return nativeMethod(env, [&] {
        auto& f = objectAt<NativeFormulas>(address);
        f.formulas.push_back(f.builder.add(text(env, expression)));
        f.program.reset();
        return static_cast<jint>(f.formulas.size() - 1);
    });
}

JNIEXPORT jobjectArray JNICALL Java_qx_Formulas_evaluate(JNIEnv* env, jclass, jlong address, jobjectArray rows)
{
    return nativeMethod(env, [&] {
        auto& f = objectAt<NativeFormulas>(address);
        const JavaPoints p(env, rows, f);
        Array<double, 2> values(p.count(), f.formulas.size());
        std::vector<qx::Output> outputs;
        for (std::size_t k = 0; k < f.formulas.size(); ++k)
            outputs.push_back({f.formulas[k], JavaPoints::column(values, k)});
        programOf(f).evaluate(p.points(), outputs, p.options());
        return qxarray::toJavaNew(env, values);
    });
}

JNIEXPORT jobjectArray JNICALL Java_qx_Formulas_gradient(JNIEnv* env, jclass, jlong address, jobjectArray rows, jint formula,
                                                         jobjectArray by)
{
    return nativeMethod(env, [&] {
        auto& f = objectAt<NativeFormulas>(address);
        const std::vector<std::string> names = texts(env, by);
        const JavaPoints p(env, rows, f);
        Array<double, 2> values(p.count(), 1 + names.size());
        std::vector<qx::Derivative> derivatives;
        for (std::size_t k = 0; k < names.size(); ++k)
            derivatives.push_back({names[k], JavaPoints::column(values, 1 + k)});
        const bool known = formula >= 0 && static_cast<std::size_t>(formula) < f.formulas.size();
        programOf(f).gradient(p.points(), known ? f.formulas[static_cast<std::size_t>(formula)] : qx::Formula(),
                              JavaPoints::column(values, 0), derivatives, p.options());
        return qxarray::toJavaNew(env, values);
    });
}

} // extern "C"
