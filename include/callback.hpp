// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "qxexport.hpp"

#include <boost/shared_ptr.hpp>
#include <complex>
#include <cstddef>
#include <string>
#include <vector>

struct JNIEnv_; // of jni.h, by name only: this header needs no Java headers

/// The road from the numerical code back into the Java side of the platform.
///
/// Java classes and methods, all static, found through qxbase::findClass:
///   com/quorix/solver/SolverCallback   void eval(int)                               an event of a solver
///   com/quorix/server/MatlabEvaluator  int evalMat(String, double[], double[])      a function on numbers; a status
///
/// Numbers travel in one flat array each way, without headers: the arguments one behind the other, first index fastest, so
/// that a function of n points finds in.length / out.length arguments. Of complex numbers first all real parts of an
/// argument, then all its imaginary parts. Of a text one number, 0 to 255, for each byte of its UTF-8 form.
///
/// Failures (module callback), after which the results are as they were, no Java exception is pending and all references
/// are given back:
///   "Internal_error_callback"        no virtual machine, or it refuses the thread; class or method missing; no memory in
///                                    Java; an exception that was pending beforehand; for solverCallback also one from eval
///   "Error_in_callback"              evalMat has thrown an exception
///   "Matrix_too_large_for_callback"  more than 2^31 - 1 numbers
/// Arguments of the failure: "Function" (evalMat's first argument), "Exception" (toString() of the Java exception, if there
/// was one) and up to 20 times "Stack" (the lines of its stack).
///
/// Threads: any. Operations without env attach the calling thread for the call, which costs some 15 microseconds unless it
/// is attached already: hold a qxutil::AttachThread around many calls. Java code is entered by many threads at once if they
/// call at once. Cost beyond Java's own: one copy of the numbers each way, one look-up of the class.
class QX_API Callback
{
public:
    /// Tells the solver's Java layer of an event; the codes are that layer's.
    static void solverCallback(int code);

    /// Calls evalMat(name, in, out) and returns its status, which is not looked at. out keeps its length; it must not share
    /// memory with in. env is the calling thread's.
    static int evalMat(const std::string& name, const std::vector<double>& in, std::vector<double>& out, JNIEnv_* env);

    /// An argument or a result: numbers with a list of extents.
    class QX_API Arg
    {
    public:
        /// Puts the first elements, as many as the product of dims, into the C-style array.
        virtual void toCArray(const std::vector<int>& dims) = 0;
        virtual ~Arg();
        /// The way back, after the C-style array was written.
        virtual void fromCArray() = 0;

        const std::vector<int>& getDims() const { return dims_; }
        std::vector<double>& getCArray() { return cArray_; }

    protected:
        explicit Arg(const std::vector<int>& dims) : dims_(dims) {}
        /// The number of elements, the product of dims; the C-style array gets parts numbers for each. There are available
        /// elements: more wanted, or a negative extent, raises "Internal_error_callback".
        std::size_t setUpCArray(const std::vector<int>& dims, std::size_t available, int parts);

    private:
        std::vector<int> dims_;
        std::vector<double> cArray_;
    };

    /// The array is kept and shared. Without extents: one, its length.
    template <class T>
    class QX_API TypedArg : public Arg
    {
    public:
        explicit TypedArg(const boost::shared_ptr<Array<T, 1>>& array);
        TypedArg(const boost::shared_ptr<Array<T, 1>>& array, const std::vector<int>& dims) : Arg(dims), array_(array) {}
        void toCArray(const std::vector<int>& dims) override;
        /// A number that is no byte becomes '?' in a text.
        void fromCArray() override;

    private:
        boost::shared_ptr<Array<T, 1>> array_;
        std::size_t count_ = 0;
    };
    using Double = TypedArg<double>;
    using DCmplx = TypedArg<std::complex<double>>;
    using Char = TypedArg<char>;

    using Args = std::vector<boost::shared_ptr<Arg>>;
    using Dims = std::vector<std::vector<int>>;
    template <class T>
    using Matrices = std::vector<boost::shared_ptr<Array<T, 2>>>;

    /// The same with typed arguments and results; lists of extents for each, or those that they have. Returns the status.
    static int evalMat(const std::string& name, const Args& args, const Dims& dims, const Args& results,
                       const Dims& resultDims);
    static int evalMat(const std::string& name, const Args& args, const Args& results);

    /// The same with matrices; results become new matrices with these extents. T is double or std::complex<double>.
    template <class T>
    static int evalMat(const std::string& name, const Matrices<T>& inputs, const Dims& resultDims, Matrices<T>& results);

    /// The sum of the lengths. Raises "Matrix_too_large_for_callback" above 2^31 - 1 numbers; a complex element is two.
    template <class T, int N>
    static int getArraySize(const std::vector<boost::shared_ptr<Array<T, N>>>& arrays);

    /// The same into matrices that are there; their extents tell how many numbers are wanted.
    static int evalDblMat(const std::string& name, const Matrices<double>& inputs, const Matrices<double>& outputs);
    static int evalDCmplxMat(const std::string& name, const Matrices<std::complex<double>>& inputs,
                             const Matrices<std::complex<double>>& outputs);
    /// A function of points: each input has n numbers, and so has out, which may be one of them.
    static int evalDblMat(const std::string& name, const std::vector<const double*>& inputs, std::size_t n, double* out);
    static int evalDCmplxMat(const std::string& name, const std::vector<const std::complex<double>*>& inputs, std::size_t n,
                             std::complex<double>* out);

    /// Raises "Error_in_callback" with "Function" and "Status" unless status is 0: what callers make of one that counts.
    static void requireSuccess(const std::string& name, int status);
};

extern template class Callback::TypedArg<double>;
extern template class Callback::TypedArg<std::complex<double>>;
extern template class Callback::TypedArg<char>;
