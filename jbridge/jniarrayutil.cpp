// SPDX-License-Identifier: LicenseRef-qxkernel
#include "jniarrayutil.hpp"

#include "jbridge/qxjarray_detail.hpp"

namespace qxarray {

template <class T>
JavaArrayRH<T>::JavaArrayRH(JNIEnv* env, JavaArray* array, unsigned char isCopy, long long tag, bool ownsReference)
    : env_(env), array_(array), isCopy_(isCopy), tag_(tag), ownsReference_(ownsReference)
{
    if (!env->ExceptionCheck() && array)
        elements_ = JavaNumbers<T>::pin(env, array, &isCopy_);
    if (!elements_)
        QX_RAISE("jniarrayutil", "JNI_exception");
}

template <class T>
JavaArrayRH<T>::~JavaArrayRH()
{
    release(0);
    if (ownsReference_)
        env_->DeleteLocalRef(array_);
}

template <class T>
void JavaArrayRH<T>::discard()
{
    release(JNI_ABORT);
}

template <class T>
void JavaArrayRH<T>::release(int mode)
{
    if (elements_)
        JavaNumbers<T>::release(env_, array_, elements_, mode);
    elements_ = nullptr;
}

template <class T>
JavaArray1RH<T>::JavaArray1RH(JNIEnv* env, typename JavaArrayRH<T>::JavaArray* array, unsigned char isCopy, long long tag,
                              T*& elements, int& length)
    : JavaArrayRH<T>(env, array, isCopy, tag)
{
    elements = this->get();
    length = env->GetArrayLength(array);
}

template class JavaArrayRH<double>;
template class JavaArrayRH<float>;
template class JavaArrayRH<int>;
template class JavaArray1RH<double>;
template class JavaArray1RH<int>;

} // namespace qxarray
