#include "Memory.h"

#ifdef VELTO_WITH_TCMALLOC
#include <algorithm>
#include <cstddef>
#include <gperftools/malloc_extension.h>
#endif

namespace velto {

#ifdef VELTO_WITH_TCMALLOC

/// tcmalloc keeps freed pages for what is allocated next, and by itself returns them over hours.
void return_unused_memory()
{
    constexpr std::size_t kKept = std::size_t{32} << 20U;
    constexpr std::size_t kAtOnce = std::size_t{32} << 20U;
    auto* const memory = MallocExtension::instance();
    std::size_t unused = 0;
    if (memory->GetNumericProperty("tcmalloc.pageheap_free_bytes", &unused) && unused > kKept) {
        memory->ReleaseToSystem((std::min)(unused - kKept, kAtOnce));
    }
}

#else

void return_unused_memory() { }

#endif

} // namespace velto
