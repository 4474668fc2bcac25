// BAS_Functor<R, Args...>: a copyable callable object (a thin std::function).
//
// Empty functors can be tested with isSet(); calling an empty functor returns
// a value-initialised R and does nothing else.
#pragma once

#include <functional>
#include <utility>

template <typename R, typename... Args> class BAS_Functor
{
public:
    BAS_Functor() = default;
    template <typename F, typename = std::enable_if_t<!std::is_same_v<std::decay_t<F>, BAS_Functor>>>
    BAS_Functor(F &&f) : myFn(std::forward<F>(f))
    {
    }

    bool isSet() const { return static_cast<bool>(myFn); }
    explicit operator bool() const { return isSet(); }
    void clear() { myFn = nullptr; }

    R operator()(Args... args) const
    {
        if (!myFn)
            return R();
        return myFn(std::forward<Args>(args)...);
    }

private:
    std::function<R(Args...)> myFn;
};
