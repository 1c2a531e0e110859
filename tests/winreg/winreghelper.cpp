// A second process for the registry tests: it writes, reads and deletes in
// the hives named by ZENT_REGISTRY_DIR and reports on stdout.
//
//   winreghelper set KEY NAME TEXT      REG_SZ value below HKEY_CURRENT_USER
//   winreghelper get KEY NAME           prints the text or "error N"
//   winreghelper deletekey KEY          prints "result N"
//   winreghelper writes KEY COUNT       DWORD values v0, v1, ...; "written i" after each returned write
//   winreghelper --machine ...          the same below HKEY_LOCAL_MACHINE

#include "winreg/winreg.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

namespace {

HKEY g_root = HKEY_CURRENT_USER;

LPCWSTR Wide(const QString& text)
{
    return reinterpret_cast<LPCWSTR>(text.utf16());
}

int Set(const QString& key, const QString& name, const QString& text)
{
    HKEY handle = nullptr;
    LONG result = RegCreateKeyW(g_root, Wide(key), &handle);
    if (result == ERROR_SUCCESS) {
        result = RegSetValueExW(handle, Wide(name), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.utf16()),
                                static_cast<DWORD>((text.size() + 1) * 2));
        RegCloseKey(handle);
    }
    std::printf("result %d\n", static_cast<int>(result));
    return result == ERROR_SUCCESS ? 0 : 1;
}

int Get(const QString& key, const QString& name)
{
    HKEY handle = nullptr;
    LONG result = RegOpenKeyExW(g_root, Wide(key), 0, KEY_READ, &handle);
    WCHAR text[512] = {};
    DWORD size = sizeof(text) - sizeof(WCHAR);
    if (result == ERROR_SUCCESS) {
        result =
            RegQueryValueExW(handle, Wide(name), nullptr, nullptr, reinterpret_cast<LPBYTE>(text), &size);
        RegCloseKey(handle);
    }
    if (result != ERROR_SUCCESS)
        std::printf("error %d\n", static_cast<int>(result));
    else
        std::printf("%s\n", QString::fromUtf16(text).toUtf8().constData());
    return 0;
}

int DeleteKey(const QString& key)
{
    std::printf("result %d\n", static_cast<int>(RegDeleteKeyW(g_root, Wide(key))));
    return 0;
}

int Writes(const QString& key, int count)
{
    HKEY handle = nullptr;
    if (RegCreateKeyW(g_root, Wide(key), &handle) != ERROR_SUCCESS)
        return 1;
    for (int i = 0; i < count; ++i) {
        const QString name = QStringLiteral("v%1").arg(i);
        const DWORD value = static_cast<DWORD>(i);
        if (RegSetValueExW(handle, Wide(name), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), 4) !=
            ERROR_SUCCESS)
            return 1;
        std::printf("written %d\n", i);
        std::fflush(stdout);
    }
    RegCloseKey(handle);
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    // The registry tests also run it with a real user other than its effective one.
    QCoreApplication::setSetuidAllowed(true);
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    if (!args.isEmpty() && args.at(0) == QLatin1String("--machine")) {
        g_root = HKEY_LOCAL_MACHINE;
        args.removeFirst();
    }
    if (args.size() == 4 && args.at(0) == QLatin1String("set"))
        return Set(args.at(1), args.at(2), args.at(3));
    if (args.size() == 3 && args.at(0) == QLatin1String("get"))
        return Get(args.at(1), args.at(2));
    if (args.size() == 2 && args.at(0) == QLatin1String("deletekey"))
        return DeleteKey(args.at(1));
    if (args.size() == 3 && args.at(0) == QLatin1String("writes"))
        return Writes(args.at(1), args.at(2).toInt());
    return 2;
}
