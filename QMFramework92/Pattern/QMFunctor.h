#pragma once

/// End of a Typelist.
struct NullType {};

/// A list of types: Typelist<A, Typelist<B, NullType>> is (A, B).
template <class Head, class Tail>
struct Typelist {};

/// Root of the callable objects that return R.
template <class R>
class QMFunctorImplBase {
public:
    virtual ~QMFunctorImplBase() = default;
};

namespace qm_detail {

/// Unfolds a Typelist into the parameters of Clone and operator().
template <class R, class TList, class... Args>
class FunctorInterface;

template <class R, class... Args>
class FunctorInterface<R, NullType, Args...> : public QMFunctorImplBase<R> {
public:
    /// A new heap copy; the caller owns it.
    virtual FunctorInterface* Clone() const = 0;
    virtual R operator()(Args... args) = 0;
};

template <class R, class Head, class Tail, class... Args>
class FunctorInterface<R, Typelist<Head, Tail>, Args...> : public FunctorInterface<R, Tail, Args..., Head> {};

}  // namespace qm_detail

/// The callable interface of the parameter list TList: Clone() and operator()(T1, T2, ...).
template <class R, class TList>
class FunctorImpl : public qm_detail::FunctorInterface<R, TList> {
public:
    FunctorImpl* Clone() const override = 0;
};

/// Names a signature; streams take and keep FunctorImpl objects of it by pointer.
template <class R, class TList>
struct QMFunctor {
    using ResultType = R;
    using ParameterList = TList;
    using Impl = FunctorImpl<R, TList>;
};

namespace qm_detail {

/// Calls a member function with the parameters of a Typelist.
template <class ParentFunctor, class PointerToObj, class PointerToMemFn, class TList, class... Args>
class MemFunCaller;

template <class ParentFunctor, class PointerToObj, class PointerToMemFn, class Head, class Tail,
          class... Args>
class MemFunCaller<ParentFunctor, PointerToObj, PointerToMemFn, Typelist<Head, Tail>, Args...>
    : public MemFunCaller<ParentFunctor, PointerToObj, PointerToMemFn, Tail, Args..., Head> {
public:
    using MemFunCaller<ParentFunctor, PointerToObj, PointerToMemFn, Tail, Args..., Head>::MemFunCaller;
};

template <class ParentFunctor, class PointerToObj, class PointerToMemFn, class... Args>
class MemFunCaller<ParentFunctor, PointerToObj, PointerToMemFn, NullType, Args...>
    : public ParentFunctor::Impl {
public:
    MemFunCaller(PointerToObj objectToCall, PointerToMemFn memberToCall)
        : object(objectToCall), memFn(memberToCall) {}

    typename ParentFunctor::ResultType operator()(Args... args) override { return (object->*memFn)(args...); }

protected:
    PointerToObj object;
    PointerToMemFn memFn;
};

}  // namespace qm_detail

/// A callable bound to a member function (virtual or not) of an object that it does not own.
/// It is called on the thread of whoever calls it, and takes no lock.
///
///     using Reply = QMFunctor<bool, Typelist<const void*, Typelist<int, NullType>>>;
///     MemFunHandler<Reply, Unit*, bool (Unit::*)(const void*, int)> handler(&unit, &Unit::onReply);
///     handler("a", 1);  // unit.onReply("a", 1)
template <class ParentFunctor, class PointerToObj, class PointerToMemFn>
class MemFunHandler final : public qm_detail::MemFunCaller<ParentFunctor, PointerToObj, PointerToMemFn,
                                                           typename ParentFunctor::ParameterList> {
public:
    using qm_detail::MemFunCaller<ParentFunctor, PointerToObj, PointerToMemFn,
                                  typename ParentFunctor::ParameterList>::MemFunCaller;

    MemFunHandler* Clone() const override { return new MemFunHandler(this->object, this->memFn); }
};
