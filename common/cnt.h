#pragma once

#include <memory>
#include <vector>

/// Containers. A byte array is cnt::array_t<char>; buffers that tasks share are held by std::shared_ptr.
namespace cnt {

template <class T, class A = std::allocator<T>>
using array_t = std::vector<T, A>;

}  // namespace cnt
