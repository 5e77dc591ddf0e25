// SPDX-License-Identifier: LicenseRef-qxkernel
#include "callback.hpp"

#include "jbridge/callback_detail.hpp"

#include "qxexception.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <limits>

using Complex = std::complex<double>;
using namespace qxcallback;

namespace {

// ---- the parts of complex numbers side by side

template <class T>
void split(const T* from, std::size_t n, double* to)
{
    for (std::size_t i = 0; i < n; ++i)
        to[i] = static_cast<double>(from[i]);
}
void split(const Complex* from, std::size_t n, double* to)
{
    for (std::size_t i = 0; i < n; ++i) {
        to[i] = from[i].real();
        to[n + i] = from[i].imag();
    }
}
void split(const char* from, std::size_t n, double* to)
{
    for (std::size_t i = 0; i < n; ++i)
        to[i] = static_cast<unsigned char>(from[i]);
}

void join(const double* from, std::size_t n, double* to) { std::copy_n(from, n, to); }
void join(const double* from, std::size_t n, Complex* to)
{
    for (std::size_t i = 0; i < n; ++i)
        to[i] = {from[i], from[n + i]};
}
void join(const double* from, std::size_t n, char* to)
{
    const auto isByte = [](double x) { return x >= 0.0 && x < 256.0; };
    for (std::size_t i = 0; i < n; ++i)
        to[i] = isByte(from[i]) ? static_cast<char>(static_cast<unsigned char>(from[i])) : '?';
}

template <class T>
constexpr int partsOf = std::is_same_v<T, Complex> ? 2 : 1;

/// A number of elements that the flat array can hold.
template <class T>
void requireFit(std::size_t elements)
{
    totalOf(Output{{nullptr, elements > std::numeric_limits<std::size_t>::max() / 2 ? elements : elements * partsOf<T>}});
}

/// Complex arrays of given lengths through flat ones.
struct ComplexCall
{
    std::vector<Piece<const Complex>> in;
    std::vector<Piece<Complex>> out;

    int run(const std::string& name) const
    {
        const auto count = [](const auto& pieces) {
            std::size_t n = 0;
            for (const auto& piece : pieces)
                n += piece.size;
            requireFit<Complex>(n);
            return 2 * n;
        };
        std::vector<double> flatIn(count(in)), flatOut(count(out));
        double* to = flatIn.data();
        for (const auto& piece : in) {
            split(piece.data, piece.size, to);
            to += 2 * piece.size;
        }
        const int status = callMatlab(name, {{flatIn.data(), flatIn.size()}}, {{flatOut.data(), flatOut.size()}});
        const double* from = flatOut.data();
        for (const auto& piece : out) {
            join(from, piece.size, piece.data);
            from += 2 * piece.size;
        }
        return status;
    }
};

int run(const std::string& name, const std::vector<Piece<const double>>& in, const std::vector<Piece<double>>& out)
{
    return callMatlab(name, in, out);
}
int run(const std::string& name, const std::vector<Piece<const Complex>>& in, const std::vector<Piece<Complex>>& out)
{
    return ComplexCall{in, out}.run(name);
}

template <class T>
int evalMatrices(const std::string& name, const Callback::Matrices<T>& inputs, const Callback::Matrices<T>& outputs)
{
    return guarded([&] {
        std::vector<Piece<const T>> in;
        std::vector<Piece<T>> out;
        Callback::getArraySize(inputs);
        Callback::getArraySize(outputs);
        for (const auto& matrix : inputs)
            in.push_back({matrix->data(), matrix->size()});
        for (const auto& matrix : outputs)
            out.push_back({matrix->data(), matrix->size()});
        return run(name, in, out);
    });
}

template <class T>
int evalPoints(const std::string& name, const std::vector<const T*>& inputs, std::size_t n, T* out)
{
    return guarded([&] {
        std::vector<Piece<const T>> in;
        for (const T* input : inputs)
            in.push_back({input, n});
        return run(name, in, {{out, n}});
    });
}

} // namespace

// ---- operations

int Callback::evalMat(const std::string& name, const std::vector<double>& in, std::vector<double>& out, JNIEnv_* env)
{
    return guarded([&] { return callMatlab(env, name, {{in.data(), in.size()}}, {{out.data(), out.size()}}); });
}

int Callback::evalMat(const std::string& name, const Args& args, const Dims& dims, const Args& results,
                      const Dims& resultDims)
{
    if (args.size() != dims.size() || results.size() != resultDims.size())
        raiseCallback(nullptr, internalError, {{"Function", name}});
    return guarded([&] {
        Input in;
        Output out;
        for (std::size_t k = 0; k < args.size(); ++k) {
            args[k]->toCArray(dims[k]);
            in.push_back({args[k]->getCArray().data(), args[k]->getCArray().size()});
        }
        for (std::size_t k = 0; k < results.size(); ++k) {
            results[k]->toCArray(resultDims[k]);
            out.push_back({results[k]->getCArray().data(), results[k]->getCArray().size()});
        }
        const int status = callMatlab(name, in, out);
        for (const auto& result : results)
            result->fromCArray();
        return status;
    });
}

int Callback::evalMat(const std::string& name, const Args& args, const Args& results)
{
    const auto dimsOf = [](const Args& list) {
        Dims dims;
        for (const auto& arg : list)
            dims.push_back(arg->getDims());
        return dims;
    };
    return guarded([&] { return evalMat(name, args, dimsOf(args), results, dimsOf(results)); });
}

template <class T>
int Callback::evalMat(const std::string& name, const Matrices<T>& inputs, const Dims& resultDims, Matrices<T>& results)
{
    return guarded([&] {
        Matrices<T> made;
        for (const std::vector<int>& dims : resultDims) {
            if (dims.size() != 2 || dims[0] < 0 || dims[1] < 0)
                raiseCallback(nullptr, internalError, {{"Function", name}});
            const auto m = static_cast<unsigned long>(dims[0]), n = static_cast<unsigned long>(dims[1]);
            requireFit<T>(m * n);
            made.push_back(boost::make_shared<Array<T, 2>>(m, n));
        }
        const int status = evalMatrices(name, inputs, made);
        results.swap(made);
        return status;
    });
}
template QX_API int Callback::evalMat(const std::string&, const Matrices<double>&, const Dims&, Matrices<double>&);
template QX_API int Callback::evalMat(const std::string&, const Matrices<Complex>&, const Dims&, Matrices<Complex>&);

template <class T, int N>
int Callback::getArraySize(const std::vector<boost::shared_ptr<Array<T, N>>>& arrays)
{
    std::size_t total = 0;
    for (const auto& array : arrays) {
        total += array->size();
        requireFit<T>(total);
    }
    return static_cast<int>(total);
}
template QX_API int Callback::getArraySize(const std::vector<boost::shared_ptr<Array<double, 1>>>&);
template QX_API int Callback::getArraySize(const std::vector<boost::shared_ptr<Array<double, 2>>>&);
template QX_API int Callback::getArraySize(const std::vector<boost::shared_ptr<Array<Complex, 1>>>&);
template QX_API int Callback::getArraySize(const std::vector<boost::shared_ptr<Array<Complex, 2>>>&);

int Callback::evalDblMat(const std::string& name, const Matrices<double>& inputs, const Matrices<double>& outputs)
{
    return evalMatrices(name, inputs, outputs);
}

int Callback::evalDCmplxMat(const std::string& name, const Matrices<Complex>& inputs, const Matrices<Complex>& outputs)
{
    return evalMatrices(name, inputs, outputs);
}

int Callback::evalDblMat(const std::string& name, const std::vector<const double*>& inputs, std::size_t n, double* out)
{
    return evalPoints(name, inputs, n, out);
}

int Callback::evalDCmplxMat(const std::string& name, const std::vector<const Complex*>& inputs, std::size_t n, Complex* out)
{
    return evalPoints(name, inputs, n, out);
}

void Callback::requireSuccess(const std::string& name, int status)
{
    if (status != 0)
        QX_RAISE("callback", "Error_in_callback",
                 qxbase::ExceptionArgs{{"Function", name}, {"Status", std::to_string(status)}});
}

// ---- arguments

Callback::Arg::~Arg() = default;

std::size_t Callback::Arg::setUpCArray(const std::vector<int>& dims, std::size_t available, int parts)
{
    if (std::any_of(dims.begin(), dims.end(), [](int n) { return n < 0; }))
        raiseCallback(nullptr, internalError);
    std::size_t count = 1;
    if (std::find(dims.begin(), dims.end(), 0) != dims.end())
        count = 0;
    for (std::size_t k = 0; k < dims.size() && count != 0; ++k) {
        count *= static_cast<std::size_t>(dims[k]); // at most 2^31 times 2^31
        totalOf(Output{{nullptr, count * static_cast<std::size_t>(parts)}});
    }
    if (count > available)
        raiseCallback(nullptr, internalError);
    cArray_.resize(count * static_cast<std::size_t>(parts));
    return count;
}

template <class T>
Callback::TypedArg<T>::TypedArg(const boost::shared_ptr<Array<T, 1>>& array)
    : Arg({static_cast<int>(std::min<unsigned long>(array->size(), std::numeric_limits<int>::max()))}), array_(array)
{
}

template <class T>
void Callback::TypedArg<T>::toCArray(const std::vector<int>& dims)
{
    count_ = setUpCArray(dims, array_->size(), partsOf<T>);
    split(array_->data(), count_, getCArray().data());
}

template <class T>
void Callback::TypedArg<T>::fromCArray()
{
    join(getCArray().data(), count_, array_->data());
}

template class Callback::TypedArg<double>;
template class Callback::TypedArg<Complex>;
template class Callback::TypedArg<char>;
