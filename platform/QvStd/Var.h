/// @file
/// Reference-counted ownership: the one owning pointer that crosses library borders.
///
/// Thread-safety: the reference count is atomic; the object itself is not guarded.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

/// Owning reference, written with the pointer type: var_a<TQvStream*>. It is a std::shared_ptr, so
/// an empty one is false, get() is a pointer without ownership, and copies share the object. The
/// last reference destroys the object as its concrete class, so that a base class needs no virtual
/// destructor as long as objects are only owned this way.
template <class P>
using var_a = std::shared_ptr<std::remove_pointer_t<P>>;

/// A new T in one allocation that holds the count, the destroy function and the object.
template <class T, class... Args>
var_a<T*> make_var(Args&&... args)
{
    return std::make_shared<T>(std::forward<Args>(args)...);
}
