// A library another user might plant: loading it leaves "evil-ran" in the
// working directory, so a test sees whether it was ever loaded.
#include <fcntl.h>
#include <unistd.h>

__attribute__((constructor)) static void MarkLoaded()
{
    const int fd = ::open("evil-ran", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd >= 0)
        ::close(fd);
}
