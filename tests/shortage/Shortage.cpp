// Makes allocations fail, linked into a test or loaded into a program by LD_PRELOAD.

#include "Shortage.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

Shortage here;
Shortage* shared = &here;

/// A program shares its shortage with the test through the file that SHORTAGE names.
__attribute__((constructor)) void share()
{
    const char* const name = std::getenv("SHORTAGE");
    const int file = name ? open(name, O_RDWR | O_CLOEXEC) : -1;
    if (file < 0)
        return;
    void* const mapped =
        mmap(nullptr, sizeof(Shortage), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (mapped != MAP_FAILED)
        shared = static_cast<Shortage*>(mapped);
}

bool failsNow()
{
    const int left = shared->left;
    const bool fails = left < 0 || (left > 0 && --shared->left == 0);
    if (fails) {
        ++shared->failed;
        errno = ENOMEM;
    }
    return fails;
}

} // namespace

Shortage& shortage() { return *shared; }

#include "../../testing/FailingAllocator.h" // uses failsNow()
