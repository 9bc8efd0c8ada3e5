// Export then import must rebuild the same tree: names with their case,
// types, and every byte, whatever the names and data hold.
#include "TalvoregRun.h"
#include "platform/Registry.h"

#include <QFile>
#include <gtest/gtest.h>

#include <map>

namespace talvo::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct DumpedValue {
    std::u16string name;
    DWORD type;
    Bytes data;
    bool operator==(const DumpedValue&) const = default;
};
// Key path (as stored, case kept) to its values in enumeration order.
using Dump = std::map<std::u16string, std::vector<DumpedValue>>;

void DumpTree(Registry& registry, HKEY key, const std::u16string& path, Dump* dump)
{
    std::vector<DumpedValue>& values = (*dump)[path];
    DumpedValue value;
    for (DWORD i = 0; registry.EnumValue(key, i, &value.name, &value.type, &value.data) == ERROR_SUCCESS; ++i)
        values.push_back(value);
    std::u16string child;
    for (DWORD i = 0; registry.EnumKey(key, i, &child) == ERROR_SUCCESS; ++i) {
        HKEY handle = 0;
        ASSERT_EQ(registry.OpenKey(key, child, KEY_READ, &handle), ERROR_SUCCESS);
        DumpTree(registry, handle, path + u"\\" + child, dump);
        registry.CloseKey(handle);
    }
}

Dump DumpStore(const QString& path)
{
    Dump dump;
    auto registry = OpenSqliteRegistry(path.toStdString());
    EXPECT_TRUE(registry);
    if (registry) {
        DumpTree(*registry, HKEY_LOCAL_MACHINE, u"HKLM", &dump);
        DumpTree(*registry, HKEY_CLASSES_ROOT, u"HKCR", &dump);
    }
    return dump;
}

void Set(Registry& registry, HKEY root, std::u16string_view path, std::u16string_view name, DWORD type,
         const Bytes& data)
{
    HKEY key = 0;
    ASSERT_EQ(registry.CreateKey(root, path, KEY_ALL_ACCESS, &key), ERROR_SUCCESS);
    ASSERT_EQ(registry.SetValue(key, name, type, data.data(), DWORD(data.size())), ERROR_SUCCESS);
    registry.CloseKey(key);
}

QByteArray ReadFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

class RegFileRoundTrip : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto registry = OpenSqliteRegistry(Path("a.db").toStdString());
        ASSERT_TRUE(registry);
        Registry& r = *registry;
        const std::u16string_view awkward = u"Software\\Talvo\\MiXeD Case\\Key ] with [brackets]\\x=y \"q\"";
        const std::u16string_view names[] = {u"Quote \"inside\"",
                                             u"back\\slash",
                                             u"trailing\\",
                                             u"=equals=",
                                             u"[bracket]",
                                             u"@",
                                             u" leading space",
                                             u";semi",
                                             u"\"",
                                             u"\u00fcn\u00efc\u00f6d\u00e9 \U0001F3A7"};
        DWORD n = 0;
        for (std::u16string_view name : names)
            Set(r, HKEY_LOCAL_MACHINE, awkward, name, REG_DWORD, {std::uint8_t(n++), 0, 0, 0});
        Set(r, HKEY_LOCAL_MACHINE, awkward, u"", REG_SZ, RegSzBytes(u"default with \\ and \""));

        const std::u16string_view types = u"Software\\Talvo\\Types";
        Bytes big(300);
        for (std::size_t i = 0; i < big.size(); ++i)
            big[i] = std::uint8_t(i * 7);
        Set(r, HKEY_LOCAL_MACHINE, types, u"Path", REG_SZ, RegSzBytes(u"C:\\Music\\\"Book\" \u00e9t\u00e9"));
        Set(r, HKEY_LOCAL_MACHINE, types, u"Empty", REG_SZ, RegSzBytes(u""));
        Set(r, HKEY_LOCAL_MACHINE, types, u"NoTerminator", REG_SZ, {0x41, 0, 0x42, 0});
        Set(r, HKEY_LOCAL_MACHINE, types, u"OddLength", REG_SZ, {0x41, 0, 0x42});
        Set(r, HKEY_LOCAL_MACHINE, types, u"InnerNul", REG_SZ, {0x41, 0, 0, 0, 0x42, 0, 0, 0});
        Set(r, HKEY_LOCAL_MACHINE, types, u"Newline", REG_SZ, RegSzBytes(u"two\r\nlines"));
        Set(r, HKEY_LOCAL_MACHINE, types, u"LoneSurrogate", REG_SZ, {0x00, 0xD8, 0x41, 0, 0, 0});
        Set(r, HKEY_LOCAL_MACHINE, types, u"Dword", REG_DWORD, {0xEF, 0xBE, 0xAD, 0xDE});
        Set(r, HKEY_LOCAL_MACHINE, types, u"ShortDword", REG_DWORD, {1, 2, 3});
        Set(r, HKEY_LOCAL_MACHINE, types, u"Big", REG_BINARY, big);
        Set(r, HKEY_LOCAL_MACHINE, types, u"NoBytes", REG_BINARY, {});
        Set(r, HKEY_LOCAL_MACHINE, types, u"Multi", REG_MULTI_SZ, {0x61, 0, 0, 0, 0x62, 0, 0, 0, 0, 0});
        Set(r, HKEY_LOCAL_MACHINE, types, u"Expand", REG_EXPAND_SZ, RegSzBytes(u"%HOME%\\x"));
        Set(r, HKEY_LOCAL_MACHINE, types, u"None", REG_NONE, {});
        Set(r, HKEY_LOCAL_MACHINE, types, u"Qword", REG_QWORD, {1, 2, 3, 4, 5, 6, 7, 8});
        Set(r, HKEY_LOCAL_MACHINE, types, u"Raw", 0x1234, {9, 8, 7});
        HKEY emptyKey = 0;
        ASSERT_EQ(r.CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Empty\\Leaf", 0, &emptyKey), ERROR_SUCCESS);
        Set(r, HKEY_CLASSES_ROOT, u".zq", u"", REG_SZ, RegSzBytes(u"zqfile"));
    }
    QString Path(const char* name) const { return dir.filePath(QLatin1String(name)); }

    QTemporaryDir dir;
};

TEST_F(RegFileRoundTrip, ImportOfAnExportRebuildsTheSameTree)
{
    for (const char* root : {"HKLM", "HKCR"}) {
        QString file = Path(root) + QStringLiteral(".reg");
        RegRun exported = Talvoreg(Path("a.db"), {QStringLiteral("export"), QLatin1String(root), file});
        ASSERT_EQ(exported.exitCode, 0) << exported.err;
        RegRun imported = Talvoreg(Path("b.db"), {QStringLiteral("import"), file});
        ASSERT_EQ(imported.exitCode, 0) << imported.err;
    }
    const Dump original = DumpStore(Path("a.db"));
    EXPECT_EQ(DumpStore(Path("b.db")), original);
    ASSERT_GT(original.size(), 6u);

    // The copy exports to the very same bytes.
    ASSERT_EQ(Talvoreg(Path("b.db"), {QStringLiteral("export"), QStringLiteral("HKLM"), Path("again.reg")})
                  .exitCode,
              0);
    const QByteArray first = ReadFile(Path("HKLM.reg"));
    EXPECT_EQ(ReadFile(Path("again.reg")), first);
    EXPECT_TRUE(first.startsWith("\xFF\xFE"));

    // The same file as UTF-8 with LF line ends imports to the same tree.
    QString text =
        QString::fromUtf16(reinterpret_cast<const char16_t*>(first.constData() + 2), (first.size() - 2) / 2);
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    QFile utf8(Path("utf8.reg"));
    ASSERT_TRUE(utf8.open(QIODevice::WriteOnly));
    utf8.write(text.toUtf8());
    utf8.close();
    ASSERT_EQ(Talvoreg(Path("c.db"), {QStringLiteral("import"), Path("utf8.reg")}).exitCode, 0);
    ASSERT_EQ(Talvoreg(Path("c.db"), {QStringLiteral("import"), Path("HKCR.reg")}).exitCode, 0);
    EXPECT_EQ(DumpStore(Path("c.db")), original);
}

TEST_F(RegFileRoundTrip, ImportAppliesDeletionsAndNothingOfAFileThatDoesNotParse)
{
    QFile edits(Path("edits.reg"));
    ASSERT_TRUE(edits.open(QIODevice::WriteOnly));
    edits.write("\xEF\xBB\xBFWindows Registry Editor Version 5.00\n\n"
                "[-HKEY_LOCAL_MACHINE\\Software\\Empty]\n"
                "[HKEY_LOCAL_MACHINE\\Software\\Talvo\\Types]\n"
                "\"Dword\"=-\n"
                "\"Wrapped\"=hex:01,02,\\\n  03\n"
                "; a comment\n");
    edits.close();
    RegRun run = Talvoreg(Path("a.db"), {QStringLiteral("import"), Path("edits.reg")});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    Dump dump = DumpStore(Path("a.db"));
    EXPECT_EQ(dump.count(u"HKLM\\Software\\Empty"), 0u);
    const std::vector<DumpedValue>& types = dump[u"HKLM\\Software\\Talvo\\Types"];
    EXPECT_EQ(std::count_if(types.begin(), types.end(), [](auto& v) { return v.name == u"Dword"; }), 0);
    EXPECT_EQ(types.back(), (DumpedValue{u"Wrapped", REG_BINARY, {1, 2, 3}}));

    const Dump before = DumpStore(Path("a.db"));
    QFile broken(Path("broken.reg"));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("Windows Registry Editor Version 5.00\r\n\r\n"
                 "[HKEY_LOCAL_MACHINE\\Software\\New]\r\n"
                 "\"Count\"=dword:123456789\r\n");
    broken.close();
    run = Talvoreg(Path("a.db"), {QStringLiteral("import"), Path("broken.reg")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("line 4: dword: needs 1 to 8 hex digits."), std::string::npos) << run.err;
    EXPECT_EQ(DumpStore(Path("a.db")), before);
}

} // namespace
} // namespace talvo::test
