#include "quietStderr.h"

#include <fcntl.h>
#include <unistd.h>

namespace diffuse {

QuietStderr::QuietStderr() : kept_(dup(STDERR_FILENO)) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (kept_ >= 0 && nowhere >= 0) dup2(nowhere, STDERR_FILENO);
    if (nowhere >= 0) close(nowhere);
}

QuietStderr::~QuietStderr() {
    if (kept_ < 0) return;
    dup2(kept_, STDERR_FILENO);
    close(kept_);
}

}  // namespace diffuse
