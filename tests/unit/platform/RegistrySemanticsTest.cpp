// What callers of the store rely on: case rules, paths, types, the size
// protocol, tree deletion, enumeration order and the fate of handles.
#include "RegistryTestSupport.h"

#include <thread>

namespace talvo::test {
namespace {

class RegistrySemantics : public ::testing::Test {
protected:
    void SetUp() override
    {
        registry = temp.Open();
        ASSERT_TRUE(registry);
    }
    HKEY Create(std::u16string_view path, DWORD* disposition = nullptr)
    {
        HKEY key = 0;
        EXPECT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, path, KEY_ALL_ACCESS, &key, disposition),
                  ERROR_SUCCESS);
        return key;
    }
    std::vector<std::u16string> SubkeyNames(HKEY key)
    {
        std::vector<std::u16string> names;
        std::u16string name;
        while (registry->EnumKey(key, DWORD(names.size()), &name) == ERROR_SUCCESS)
            names.push_back(name);
        return names;
    }
    std::vector<std::u16string> ValueNames(HKEY key)
    {
        std::vector<std::u16string> names;
        std::u16string name;
        while (registry->EnumValue(key, DWORD(names.size()), &name, nullptr, nullptr) == ERROR_SUCCESS)
            names.push_back(name);
        return names;
    }

    TempRegistry temp;
    std::unique_ptr<Registry> registry;
};

TEST_F(RegistrySemantics, NamesIgnoreCaseButKeepTheirFirstSpelling)
{
    DWORD disposition = 0;
    HKEY created = Create(u"Software\\Talvo", &disposition);
    EXPECT_EQ(disposition, DWORD(REG_CREATED_NEW_KEY));
    HKEY again = Create(u"SOFTWARE\\talvo", &disposition);
    EXPECT_EQ(disposition, DWORD(REG_OPENED_EXISTING_KEY));

    ASSERT_EQ(WriteValue(*registry, created, u"Jump Back", REG_DWORD, DwordBytes(30)), ERROR_SUCCESS);
    EXPECT_EQ(ReadValue(*registry, again, u"JUMP BACK").data, DwordBytes(30));
    // Writing through another spelling replaces the value but keeps its name.
    ASSERT_EQ(WriteValue(*registry, again, u"jump back", REG_DWORD, DwordBytes(45)), ERROR_SUCCESS);
    EXPECT_EQ(ValueNames(created), std::vector<std::u16string>{u"Jump Back"});
    EXPECT_EQ(ReadValue(*registry, created, u"Jump Back").data, DwordBytes(45));

    HKEY software = 0;
    ASSERT_EQ(registry->OpenKey(HKEY_LOCAL_MACHINE, u"software", KEY_READ, &software), ERROR_SUCCESS);
    EXPECT_EQ(SubkeyNames(software), std::vector<std::u16string>{u"Talvo"});
    EXPECT_EQ(SubkeyNames(HKEY_LOCAL_MACHINE), std::vector<std::u16string>{u"Software"});

    // Case folding reaches beyond ASCII.
    HKEY umlaut = Create(u"Software\\\u00c4pfel");
    HKEY lower = 0;
    ASSERT_EQ(registry->OpenKey(HKEY_LOCAL_MACHINE, u"software\\\u00e4PFEL", KEY_READ, &lower),
              ERROR_SUCCESS);
    ASSERT_EQ(WriteValue(*registry, umlaut, u"\u00e9t\u00e9", REG_BINARY, {1}), ERROR_SUCCESS);
    EXPECT_EQ(ReadValue(*registry, lower, u"\u00c9T\u00c9").data, std::vector<std::uint8_t>{1});

    // The two roots are separate trees.
    HKEY classes = 0;
    EXPECT_EQ(registry->OpenKey(HKEY_CLASSES_ROOT, u"Software", KEY_READ, &classes), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistrySemantics, PathsTolerateStrayBackslashesAndRefuseUnstorableNames)
{
    HKEY key = Create(u"Software\\Talvo\\Skins");
    ASSERT_EQ(WriteValue(*registry, key, u"Active Skin", REG_SZ, RegSzBytes(u"Blue")), ERROR_SUCCESS);
    for (std::u16string_view spelling : {u"\\Software\\Talvo\\Skins", u"Software\\\\Talvo\\Skins\\",
                                         u"\\\\Software\\Talvo\\\\\\Skins\\\\"}) {
        HKEY opened = 0;
        ASSERT_EQ(registry->OpenKey(HKEY_LOCAL_MACHINE, spelling, KEY_READ, &opened), ERROR_SUCCESS);
        EXPECT_EQ(ReadValue(*registry, opened, u"Active Skin").data, RegSzBytes(u"Blue"));
    }
    EXPECT_EQ(SubkeyNames(HKEY_LOCAL_MACHINE), std::vector<std::u16string>{u"Software"});

    // An empty path opens the key itself again.
    HKEY self = 0;
    ASSERT_EQ(registry->OpenKey(key, u"", KEY_READ, &self), ERROR_SUCCESS);
    EXPECT_NE(self, key);
    EXPECT_EQ(ReadValue(*registry, self, u"Active Skin").status, ERROR_SUCCESS);

    HKEY bad = 0;
    EXPECT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, std::u16string(256, u'k'), 0, &bad),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, std::u16string(u"a\0b", 3), 0, &bad),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, u"lone \xd800 surrogate", 0, &bad),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(WriteValue(*registry, key, u"bad \xdc00", REG_SZ, {}), ERROR_INVALID_PARAMETER);
    // SQLite would hand these back as U+FFFD: listed, but unreachable by that name.
    EXPECT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, u"non\uffffcharacter", 0, &bad),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(WriteValue(*registry, key, u"non\ufffecharacter", REG_SZ, {}), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(SubkeyNames(HKEY_LOCAL_MACHINE), std::vector<std::u16string>{u"Software"});
}

TEST_F(RegistrySemantics, ValuesKeepTypeAndBytesAndAnswerTheSizeProtocol)
{
    HKEY key = Create(u"Software\\Talvo");
    const std::vector<std::uint8_t> binary{0x00, 0xff, 0x10, 0x00, 0x7f};
    const std::vector<std::uint8_t> odd{1, 2, 3};
    ASSERT_EQ(WriteValue(*registry, key, u"Text", REG_SZ, RegSzBytes(u"Caf\u00e9 \U0001F3A7")),
              ERROR_SUCCESS);
    ASSERT_EQ(WriteValue(*registry, key, u"Volume", REG_DWORD, DwordBytes(0xFFFF0000u)), ERROR_SUCCESS);
    ASSERT_EQ(WriteValue(*registry, key, u"Blob", REG_BINARY, binary), ERROR_SUCCESS);
    ASSERT_EQ(WriteValue(*registry, key, u"Odd", 0x1234, odd), ERROR_SUCCESS);
    ASSERT_EQ(registry->SetValue(key, u"", REG_NONE, nullptr, 0), ERROR_SUCCESS);

    StoredValue text = ReadValue(*registry, key, u"Text");
    EXPECT_EQ(text.type, REG_SZ);
    EXPECT_EQ(RegSzText(text.data.data(), DWORD(text.data.size())), u"Caf\u00e9 \U0001F3A7");
    EXPECT_EQ(ReadValue(*registry, key, u"Volume").data, DwordBytes(0xFFFF0000u));
    EXPECT_EQ(ReadValue(*registry, key, u"Blob").data, binary);
    StoredValue raw = ReadValue(*registry, key, u"Odd");
    EXPECT_EQ(raw.type, 0x1234u);
    EXPECT_EQ(raw.data, odd);
    StoredValue empty = ReadValue(*registry, key, u"");
    EXPECT_EQ(empty.status, ERROR_SUCCESS);
    EXPECT_EQ(empty.type, REG_NONE);
    EXPECT_TRUE(empty.data.empty());

    // Size query, too little room (nothing copied), exact room.
    DWORD type = 99;
    DWORD size = 0;
    ASSERT_EQ(registry->QueryValue(key, u"Blob", &type, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, binary.size());
    EXPECT_EQ(type, REG_BINARY);
    std::vector<std::uint8_t> room(binary.size(), 0xAA);
    size = DWORD(binary.size() - 1);
    EXPECT_EQ(registry->QueryValue(key, u"Blob", nullptr, room.data(), &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, binary.size());
    EXPECT_EQ(room, std::vector<std::uint8_t>(binary.size(), 0xAA));
    size = DWORD(room.size());
    EXPECT_EQ(registry->QueryValue(key, u"Blob", nullptr, room.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(room, binary);
    // A getter's 4-byte buffer against a longer string.
    std::uint8_t four[4] = {};
    size = sizeof four;
    EXPECT_EQ(registry->QueryValue(key, u"Text", &type, four, &size), ERROR_MORE_DATA);

    // Missing things.
    EXPECT_EQ(registry->QueryValue(key, u"Nothing", &type, nullptr, &size), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(registry->DeleteValue(key, u"Nothing"), ERROR_FILE_NOT_FOUND);
    HKEY missing = 0;
    EXPECT_EQ(registry->OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Nothing", KEY_READ, &missing),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(registry->DeleteKey(HKEY_LOCAL_MACHINE, u"Software\\Nothing"), ERROR_FILE_NOT_FOUND);
    ASSERT_EQ(registry->DeleteValue(key, u"BLOB"), ERROR_SUCCESS);
    EXPECT_EQ(ReadValue(*registry, key, u"Blob").status, ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistrySemantics, EnumerationOrdersKeysByFoldedNameAndValuesByFirstSet)
{
    HKEY parent = Create(u"Software\\Talvo\\AudioData");
    for (std::u16string_view name : {u"gamma", u"Beta", u"alpha", u"ALPHA2", u"Delta"}) {
        HKEY child = 0;
        ASSERT_EQ(registry->CreateKey(parent, name, 0, &child), ERROR_SUCCESS);
        registry->CloseKey(child);
    }
    EXPECT_EQ(SubkeyNames(parent),
              (std::vector<std::u16string>{u"alpha", u"ALPHA2", u"Beta", u"Delta", u"gamma"}));
    std::u16string name;
    EXPECT_EQ(registry->EnumKey(parent, 5, &name), ERROR_NO_MORE_ITEMS);
    // Index i is always the i-th item as the store stands, even when another
    // process adds a key between two steps of an enumeration.
    ASSERT_EQ(registry->EnumKey(parent, 0, &name), ERROR_SUCCESS);
    auto other = temp.Open();
    HKEY first = 0;
    ASSERT_EQ(other->CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Talvo\\AudioData\\Aardvark", 0, &first),
              ERROR_SUCCESS);
    ASSERT_EQ(registry->EnumKey(parent, 1, &name), ERROR_SUCCESS);
    EXPECT_EQ(name, u"alpha");

    for (std::u16string_view value : {u"zeta", u"Count", u"alpha", u"Name"})
        ASSERT_EQ(WriteValue(*registry, parent, value, REG_DWORD, DwordBytes(1)), ERROR_SUCCESS);
    ASSERT_EQ(WriteValue(*registry, parent, u"ZETA", REG_SZ, RegSzBytes(u"again")), ERROR_SUCCESS);
    ASSERT_EQ(registry->DeleteValue(parent, u"count"), ERROR_SUCCESS);
    ASSERT_EQ(WriteValue(*registry, parent, u"Count", REG_DWORD, DwordBytes(2)), ERROR_SUCCESS);
    EXPECT_EQ(ValueNames(parent), (std::vector<std::u16string>{u"zeta", u"alpha", u"Name", u"Count"}));

    DWORD type = 0;
    std::vector<std::uint8_t> data;
    ASSERT_EQ(registry->EnumValue(parent, 0, &name, &type, &data), ERROR_SUCCESS);
    EXPECT_EQ(type, REG_SZ);
    EXPECT_EQ(data, RegSzBytes(u"again"));
    EXPECT_EQ(registry->EnumValue(parent, 4, &name, &type, &data), ERROR_NO_MORE_ITEMS);
}

TEST_F(RegistrySemantics, DeleteKeyTakesTheWholeTreeAndItsHandlesAnswerKeyDeleted)
{
    HKEY program = Create(u"SOFTWARE\\Talvo\\AudioData\\P1");
    HKEY bookmark = Create(u"SOFTWARE\\Talvo\\AudioData\\P1\\Bookmarks\\Bookmark0");
    HKEY sibling = Create(u"SOFTWARE\\Talvo\\AudioData\\P2");
    ASSERT_EQ(WriteValue(*registry, program, u"play_pos", REG_DWORD, DwordBytes(5)), ERROR_SUCCESS);
    ASSERT_EQ(WriteValue(*registry, bookmark, u"Name", REG_SZ, RegSzBytes(u"x")), ERROR_SUCCESS);
    ASSERT_EQ(WriteValue(*registry, sibling, u"play_pos", REG_DWORD, DwordBytes(7)), ERROR_SUCCESS);

    ASSERT_EQ(registry->DeleteKey(HKEY_LOCAL_MACHINE, u"software\\talvo\\audiodata\\p1"), ERROR_SUCCESS);
    HKEY audio = 0;
    ASSERT_EQ(registry->OpenKey(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Talvo\\AudioData", KEY_READ, &audio),
              ERROR_SUCCESS);
    EXPECT_EQ(SubkeyNames(audio), std::vector<std::u16string>{u"P2"});
    EXPECT_EQ(ReadValue(*registry, sibling, u"play_pos").data, DwordBytes(7));

    // Handles below the deleted key are dead, even after a key of the same name comes back.
    HKEY reborn = Create(u"SOFTWARE\\Talvo\\AudioData\\P1\\Bookmarks\\Bookmark0");
    EXPECT_TRUE(ValueNames(reborn).empty());
    std::u16string name;
    DWORD size = 0;
    EXPECT_EQ(registry->QueryValue(bookmark, u"Name", nullptr, nullptr, &size), ERROR_KEY_DELETED);
    EXPECT_EQ(WriteValue(*registry, program, u"play_pos", REG_DWORD, DwordBytes(1)), ERROR_KEY_DELETED);
    EXPECT_EQ(registry->EnumKey(program, 0, &name), ERROR_KEY_DELETED);
    HKEY below = 0;
    EXPECT_EQ(registry->CreateKey(program, u"Bookmarks", 0, &below), ERROR_KEY_DELETED);
    EXPECT_EQ(registry->CloseKey(program), ERROR_SUCCESS);
    EXPECT_EQ(registry->CloseKey(program), ERROR_INVALID_HANDLE);
    EXPECT_EQ(registry->QueryValue(HKEY(12345), u"x", nullptr, nullptr, &size), ERROR_INVALID_HANDLE);

    // A deletion by another process reaches this process's handles too.
    auto other = temp.Open();
    ASSERT_TRUE(other);
    ASSERT_EQ(other->DeleteKey(HKEY_LOCAL_MACHINE, u"Software\\Talvo\\AudioData\\P2"), ERROR_SUCCESS);
    EXPECT_EQ(registry->QueryValue(sibling, u"play_pos", nullptr, nullptr, &size), ERROR_KEY_DELETED);

    // Deleting the key a handle names; the roots cannot go.
    EXPECT_EQ(registry->DeleteKey(reborn, u""), ERROR_SUCCESS);
    EXPECT_EQ(registry->EnumValue(reborn, 0, &name, nullptr, nullptr), ERROR_KEY_DELETED);
    EXPECT_EQ(registry->DeleteKey(HKEY_LOCAL_MACHINE, u""), ERROR_ACCESS_DENIED);
    EXPECT_EQ(registry->DeleteKey(HKEY_CLASSES_ROOT, u"\\"), ERROR_ACCESS_DENIED);
}

TEST_F(RegistrySemantics, WritesFromSeveralThreadsAllLandAndSurviveReopening)
{
    constexpr int kThreads = 4;
    constexpr int kWrites = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kWrites; ++i) {
                HKEY key = 0;
                std::u16string path = u"Software\\Threads\\T" + std::u16string(1, char16_t(u'0' + t));
                ASSERT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, path, 0, &key), ERROR_SUCCESS);
                std::u16string name = u"v" + QString::number(i).toStdU16String();
                ASSERT_EQ(WriteValue(*registry, key, name, REG_DWORD, DwordBytes(DWORD(i))), ERROR_SUCCESS);
                ASSERT_EQ(registry->CloseKey(key), ERROR_SUCCESS);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(registry->FlushKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);
    registry.reset();

    auto reopened = temp.Open();
    ASSERT_TRUE(reopened);
    for (int t = 0; t < kThreads; ++t) {
        HKEY key = 0;
        std::u16string path = u"Software\\Threads\\T" + std::u16string(1, char16_t(u'0' + t));
        ASSERT_EQ(reopened->OpenKey(HKEY_LOCAL_MACHINE, path, KEY_READ, &key), ERROR_SUCCESS);
        for (int i = 0; i < kWrites; ++i) {
            std::u16string name = u"v" + QString::number(i).toStdU16String();
            EXPECT_EQ(ReadValue(*reopened, key, name).data, DwordBytes(DWORD(i)));
        }
    }
}

TEST(RegSzConversion, EndsAtTheFirstNulAndToleratesAMissingTerminator)
{
    EXPECT_EQ(RegSzBytes(u"A\u00e9"), (std::vector<std::uint8_t>{0x41, 0, 0xe9, 0, 0, 0}));
    const std::uint8_t withNul[] = {0x41, 0, 0, 0, 0x42, 0};
    EXPECT_EQ(RegSzText(withNul, sizeof withNul), u"A");
    const std::uint8_t unterminatedOdd[] = {0x41, 0, 0x42, 0, 0x43};
    EXPECT_EQ(RegSzText(unterminatedOdd, sizeof unterminatedOdd), u"AB");
    EXPECT_EQ(RegSzText(nullptr, 8), u"");
}

} // namespace
} // namespace talvo::test
