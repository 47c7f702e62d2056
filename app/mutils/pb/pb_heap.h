/*
 * pb_heap.h - an owner for memory of the C heap (internal): what
 * pb_heap_alloc() gives is freed on every path out of the owner's scope.
 */
#ifndef PB_HEAP_H
#define PB_HEAP_H

#include <cstdlib>
#include <memory>

struct pb_heap_free {
    void operator()(void *p) const { std::free(p); }
};
/* pb_heap_ptr<T> owns one object, pb_heap_ptr<T[]> an array. */
template <typename T> using pb_heap_ptr = std::unique_ptr<T, pb_heap_free>;

/* count zero-filled objects of T (a plain C type), or null when memory is
 * out or count * sizeof(T) does not fit a size_t. */
template <typename T> pb_heap_ptr<T[]> pb_heap_alloc(size_t count)
{
    return pb_heap_ptr<T[]>(static_cast<T *>(std::calloc(count, sizeof(T))));
}

#endif /* PB_HEAP_H */
