// A hold on an object: move-only, given back through GiveBack at the end of the scope.
#pragma once

#include <memory>

namespace tovik {

template <auto GiveBack>
struct HeldEnd {
  template <class T>
  void operator()(T *object) const {
    GiveBack(object);
  }
};

template <class T, auto GiveBack>
using Held = std::unique_ptr<T, HeldEnd<GiveBack>>;

}  // namespace tovik
