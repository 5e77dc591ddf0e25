// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "jniarrayutil.hpp"
#include "matrix.hpp"
#include "qxexport.hpp"
#include "qxjni.hpp"

#include <boost/any.hpp>
#include <boost/shared_ptr.hpp>
#include <complex>
#include <string>
#include <vector>

/// Exchange of arrays with Java.
///
/// Shapes: a matrix is a double[][] of rows, its C++ side is column-major: a[i][j] is A(i, j), a[i][j][k] is A(i, j, k).
/// Vectors of vectors are the same Java types with rows of any lengths. Short values keep their bit pattern.
///
/// env is the calling thread's environment, from the Java method or from VMData::getJNIEnv(); nothing is kept in static
/// variables. Made arrays are local references of the caller's; all other references are given back, so that a matrix of
/// any number of rows needs a few of them at a time.
///
/// Failures (module qxjarray), the same for all forms:
///   "JNI_exception"                        a null array, row or string; a Java exception that was pending on entry, in
///                                          which case nothing else is called; a JNI call that fails. The Java exception,
///                                          such as OutOfMemoryError, stays pending for the Java method above
///   "Out_of_memory_array_processing"       no memory for the target, or more than an Array holds
///   "Internal_error_array_processing"      rows of another type; null inside a source
///   "Illegal_number_of_rows", "Illegal_number_of_columns", "Irregular_number_of_columns"      a bad shape
///   "Matrix_too_large_for_JNI_interface"   a length or a total above 2^31 - 1
/// After a failure a target of another size is as it was. A target that already had the size is written in place and may
/// be half written; so may an existing Java array.
///
/// Cost: one pass of copies, rows through a block of 32 KB. A target of the right size is not reallocated. The garbage
/// collector waits while an array of 4 MB or more is written into Java.
namespace qxarray {

using qxbase::toJavaNew;

// ---- Java to C++

/// Copies into target, which takes the Java array's shape; an empty outer array empties it. T is double or int.
/// Raises "Irregular_number_of_columns" for a row that is shorter or longer than the first.
template <class T>
QX_API void toCpp(JNIEnv_* env, typename JavaArrayType<T, 1>::type* array, Array<T, 1>& target);
template <class T>
QX_API void toCpp(JNIEnv_* env, _jobjectArray* array, Array<T, 2>& target);
template <class T>
QX_API void toCpp(JNIEnv_* env, _jobjectArray* array, Array<T, 3>& target);

/// T is double, int, signed char, unsigned short or long long; nested: double or int.
template <class T>
QX_API void toCpp(JNIEnv_* env, typename JavaArrayType<T, 1>::type* array, std::vector<T>& target);
template <class T>
QX_API void toCpp(JNIEnv_* env, _jobjectArray* array, std::vector<std::vector<T>>& target);

/// Texts, as jStr2CppStr and jStr2CppWStr convert them.
QX_API void toCpp(JNIEnv_* env, _jobjectArray* array, std::vector<std::string>& target);
QX_API void toCpp(JNIEnv_* env, _jobjectArray* array, std::vector<std::vector<std::string>>& target);
QX_API void toCpp(JNIEnv_* env, _jobjectArray* array, std::vector<std::wstring>& target);
QX_API void toCpp(JNIEnv_* env, _jobjectArray* array, std::vector<std::vector<std::wstring>>& target);

// ---- C++ to Java

/// A new Java array with the source's shape and values: the mirror of toCpp.
template <class T>
QX_API typename JavaArrayType<T, 1>::type* toJavaNew(JNIEnv_* env, const Array<T, 1>& source);
template <class T>
QX_API _jobjectArray* toJavaNew(JNIEnv_* env, const Array<T, 2>& source);
template <class T>
QX_API _jobjectArray* toJavaNew(JNIEnv_* env, const Array<T, 3>& source);
template <class T>
QX_API typename JavaArrayType<T, 1>::type* toJavaNew(JNIEnv_* env, const std::vector<T>& source);
/// T is double, int, std::string or std::wstring. A null pointer raises "Internal_error_array_processing".
template <class T>
QX_API _jobjectArray* toJavaNew(JNIEnv_* env, const std::vector<std::vector<T>>& source);
template <class T>
QX_API _jobjectArray* toJavaNew(JNIEnv_* env, const std::vector<boost::shared_ptr<std::vector<T>>>& source);

/// Writes into the Java array if it is there and has the source's lengths; otherwise array becomes a new one (rows of a
/// matrix: one by one). The reference that was there stays the caller's.
QX_API void toJavaExisting(JNIEnv_* env, const Array<double, 1>& source, _jdoubleArray*& array);
QX_API void toJavaExisting(JNIEnv_* env, const Array<int, 1>& source, _jintArray*& array);
QX_API void toJavaExisting(JNIEnv_* env, const Array<double, 2>& source, _jobjectArray*& array);
QX_API void toJavaExisting(JNIEnv_* env, const Array<double, 3>& source, _jobjectArray*& array);
QX_API void toJavaExisting(JNIEnv_* env, const std::vector<std::vector<double>>& source, _jobjectArray*& array);
/// {re, im}
QX_API void toJavaExisting(JNIEnv_* env, const std::complex<double>& source, _jdoubleArray*& array);

// ---- shapes

/// Checks a double[][]: "Illegal_number_of_rows" unless it has that many rows, "Illegal_number_of_columns" for a null row,
/// "Irregular_number_of_columns" for rows of several lengths. Returns the number of columns, 0 without rows.
QX_API int checkSizeMatrix(JNIEnv_* env, _jobjectArray* array, int rows);

/// A flat column-major double[] of m n elements into a matrix of m rows and n columns; another length raises
/// "Illegal_number_of_rows".
QX_API void jdA1cppdA2(JNIEnv_* env, _jdoubleArray* array, int m, int n, Array<double, 2>& target);

/// A vector from real and imaginary parts; a null im gives a real one. Different lengths raise
/// "Internal_error_array_processing". Storage of that type and size that the matrix does not share is kept.
QX_API void jVDblVDbl2CppV(JNIEnv_* env, _jdoubleArray* re, _jdoubleArray* im, Matrix<1>& matrix);

/// One handle for each row, which owns the row's reference. Room for that many local references and 16 more is asked for
/// first; who holds the handles of several matrices at once asks for more by EnsureLocalCapacity.
QX_API void jiM2viAH(JNIEnv_* env, _jobjectArray* matrix, std::vector<boost::shared_ptr<jintArrayRH>>& handles);
QX_API void jfM2vfAH(JNIEnv_* env, _jobjectArray* matrix, std::vector<boost::shared_ptr<jfloatArrayRH>>& handles);
QX_API void jdM2vdAH(JNIEnv_* env, _jobjectArray* matrix, std::vector<boost::shared_ptr<jdoubleArrayRH>>& handles);
/// The same for a double[][][].
QX_API void jdA32vvdAH(JNIEnv_* env, _jobjectArray* array,
                       std::vector<std::vector<boost::shared_ptr<jdoubleArrayRH>>>& handles);

// ---- values of property lists

// A property holds a Matrix<N>, an Array<double, N>, or a boost::shared_ptr to a std::vector of either, N = 1, 2, 3: twelve
// forms. Another type, an index outside the vector and a null pointer raise "Internal_error_array_processing".
// Addresses are for reading, valid until the value is changed, 0 for an empty one; complex numbers are (re, im) pairs.

/// Matrix<N>.
QX_API long getMatrixAdr(const boost::any& value);
QX_API std::vector<int> getMatrixDim(const boost::any& value);
QX_API bool isMatrixReal(const boost::any& value);
/// Gives it N extents, elements 0, real or complex. Extents and type that it has already: nothing changes, but the storage
/// is no longer shared. A matrix that stands for an outside buffer cannot change: "Internal_error_array_processing".
QX_API void setMatrixDim(boost::any& value, const std::vector<int>& dims, bool real);

/// Vector of Matrix<N>; i counts from 0.
QX_API int getVMatrixLen(const boost::any& value);
QX_API long getVMatrixAdr(const boost::any& value, int i);
QX_API std::vector<int> getVMatrixDim(const boost::any& value, int i);
QX_API bool isVMatrixReal(const boost::any& value, int i);
/// Gives the vector n matrices, those beyond the old length empty, real or complex.
QX_API void setVMatrixLen(boost::any& value, int n, bool real);
QX_API void setVMatrixDim(boost::any& value, const std::vector<int>& dims, bool real, int i);

/// Array<double, N>; with an index: one of a vector of them. Len without an index is the number of elements of an array,
/// or the number of arrays of a vector. Val is a copy, first index fastest.
QX_API long getDoubleArrayAdr(const boost::any& value);
QX_API long getDoubleArrayAdr(const boost::any& value, int i);
QX_API std::vector<double> getDoubleArrayVal(const boost::any& value);
QX_API std::vector<double> getDoubleArrayVal(const boost::any& value, int i);
QX_API std::vector<int> getDoubleArrayDim(const boost::any& value);
QX_API std::vector<int> getDoubleArrayDim(const boost::any& value, int i);
QX_API int getDoubleArrayLen(const boost::any& value);
QX_API int getDoubleArrayLen(const boost::any& value, int i);

} // namespace qxarray
