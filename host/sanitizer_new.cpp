// AddressSanitizer ends the process where a size is impossible; the platform's operator new[]
// throws std::bad_alloc, and a run may end by it. Part of the sanitizers' build only.

#include <cstddef>
#include <cstdint>
#include <new>

void* operator new[](std::size_t size) {
    if (size > PTRDIFF_MAX) {
        throw std::bad_alloc();
    }
    return ::operator new(size);
}

void operator delete[](void* memory) noexcept { ::operator delete(memory); }
void operator delete[](void* memory, std::size_t) noexcept { ::operator delete(memory); }
