// Feeds arbitrary bytes to the .reg import's parser (both formats, UTF-16 and
// 8-bit text). A parse either gives operations or names a line within the
// input; what parsed must survive its own checks without crashing.

#include "regfile.h"

#include <QByteArray>
#include <QCoreApplication>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static int argc = 1;
    static char name[] = "fuzz_regfile";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    const QByteArray content(reinterpret_cast<const char*>(data), static_cast<int>(size));
    RegFile file;
    if (file.Parse(content)) {
        if (!file.ErrorText().isEmpty())
            std::abort();
        for (const RegFile::Operation& operation : file.Operations()) {
            // Every step names a key below a known root and a line of the input.
            if (operation.key.isEmpty() || operation.line < 1 ||
                operation.line > content.count('\n') + 1 + content.count('\r'))
                std::abort();
        }
    } else if (file.ErrorLine() < 1 || file.ErrorText().isEmpty()) {
        std::abort();
    }
    return 0;
}
