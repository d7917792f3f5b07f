// A growable list that keeps its first N elements inline and moves to one heap
// block only when an (N+1)th element arrives. On each overflow the capacity
// becomes the smallest power of two not below twice the old one; the old heap
// block (never the inline array) is freed, and the heap block is freed when the
// list is destroyed. Elements are copied by assignment.
#ifndef TARN_UTIL_BASE_HYBRID_WORKLIST_H
#define TARN_UTIL_BASE_HYBRID_WORKLIST_H

#include <cstdint>

#include "util/base/assert.h"
#include "util/base/bitops.h"

namespace tarn {

template <typename T, unsigned N, typename SizeT = uint64_t>
class hybrid_worklist {
 public:
  typedef SizeT size_type;
  static const unsigned ActualSize = N;

  // The inline elements are left as T's default constructor leaves them (a
  // plain struct: unset), since every element is assigned before it is read.
  hybrid_worklist() : _size(0), _allocated(N), _pArray(_array) {}
  ~hybrid_worklist() {
    if (_pArray != _array) delete[] _pArray;
  }
  hybrid_worklist(const hybrid_worklist&) = delete;
  hybrid_worklist& operator=(const hybrid_worklist&) = delete;

  void push_back(const T& value_) {
    if (_size == _allocated) _grow();
    _pArray[_size++] = value_;
  }
  void pop_back() {
    TARN_ASSERT(_size != 0);
    --_size;
  }
  T& last() {
    TARN_ASSERT(_size != 0);
    return _pArray[_size - 1];
  }
  T& operator[](size_type index_) {
    TARN_ASSERT(index_ < _size);
    return _pArray[index_];
  }
  const T& operator[](size_type index_) const {
    TARN_ASSERT(index_ < _size);
    return _pArray[index_];
  }
  size_type size() const { return _size; }
  size_type capacity() const { return _allocated; }
  bool empty() const { return _size == 0; }
  bool onHeap() const { return _pArray != _array; }

 protected:
  void _grow() {
    const size_type newSize =
        static_cast<size_type>(bitops::nextPowerOfTwo(static_cast<uint32_t>(2 * _allocated)));
    T* pNew = new T[newSize]();
    for (size_type i = 0; i < _size; ++i) pNew[i] = _pArray[i];
    if (_pArray != _array) delete[] _pArray;
    _pArray = pNew;
    _allocated = newSize;
  }

  size_type _size;
  size_type _allocated;
  T* _pArray;
  T _array[N];
};

}  // namespace tarn

#endif
