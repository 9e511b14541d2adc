#include <gtest/gtest.h>

#include "collection/collectors.h"
#include "collection/zorv_win_io_dll.h"
#include "common/device_identity.h"
#include "support/notebook.h"

namespace zorvalis {
namespace {

std::string Copy(const wchar_t* name) {
    return NarrowBytes(ReadRegString(kLocalMachine, kConfigKey, name));
}

std::wstring NvramFail() {
    return ReadRegDword(kLocalMachine, kConfigKey, L"NvramFail");
}

std::wstring BoardUUID() {
    ZorvWinIoDll zorvWinIoDll;
    WideBuffer buffer{};
    zorvWinIoDll.wmiGetBoardUUID(buffer.data(), 1);
    return WideText(buffer);
}

TEST(DeviceUUID, ComesFromStorageWhichABlankOneIsFilledFor) {
    Notebook machine;
    EXPECT_EQ(getDeviceUUID(), "00112233-4455-6677-8899-aabbccddeeff");
    EXPECT_EQ(Copy(L"RandomUUID"), "00112233-4455-6677-8899-aabbccddeeff");
    machine.change_hardware(R"({"GPNV_RandomUUID": "blank"})");
    const std::string made = getDeviceUUID();
    EXPECT_EQ(made.size(), 36U);
    EXPECT_EQ(Copy(L"RandomUUID"), made);
    ASSERT_TRUE(DeleteRegValue(kLocalMachine, kConfigKey, L"RandomUUID"));
    EXPECT_EQ(getDeviceUUID(), made) << "read back from storage, not from the copy";
    EXPECT_EQ(Copy(L"RandomUUID"), made);
    EXPECT_EQ(NvramFail(), ERROR_READREG);

    machine.change_hardware(R"({"GPNV_RandomUUID": "blank", "GPNV_Set_RandomUUID": {"fail": true}})");
    const std::string lost = getDeviceUUID();
    EXPECT_EQ(Copy(L"RandomUUID"), lost);
    EXPECT_EQ(NvramFail(), L"1");
    EXPECT_NE(getDeviceUUID(), lost);
}

TEST(DeviceUUID, IsTheCopyWhileStorageFails) {
    Notebook machine;
    for (const char* hardware : {R"({"GPNV_RandomUUID": "fail"})", R"({"GPNV_RandomUUID": null})"}) {
        machine.change_hardware(hardware);
        DeleteRegKey(kLocalMachine, kConfigKey);
        const std::string made = getDeviceUUID();
        EXPECT_EQ(made.size(), 36U);
        EXPECT_EQ(NvramFail(), L"1");
        EXPECT_EQ(getDeviceUUID(), made);
        ASSERT_TRUE(WriteRegString(kLocalMachine, kConfigKey, L"RandomUUID", L"By Hand"));
        EXPECT_EQ(getDeviceUUID(), "By Hand");
    }
    machine.change_hardware("{}");
    EXPECT_EQ(getDeviceUUID(), "00112233-4455-6677-8899-aabbccddeeff");
    EXPECT_EQ(NvramFail(), L"1") << "never cleared";
    DeleteRegKey(kLocalMachine, kConfigKey);
    machine.remove_library();
    const std::string made = getDeviceUUID();
    EXPECT_EQ(Copy(L"RandomUUID"), made);
    EXPECT_EQ(NvramFail(), L"1") << "no library is a failing storage";
}

TEST(SerialNumber, LosesItsBlanksAndNothingElse) {
    Notebook machine;
    machine.change_hardware(R"({"WMIGetSN": {"value": " ZL 14\t 793 ", "flag0": "wrong"}})");
    EXPECT_EQ(getSerialNumber(), "ZL14\t793");
    EXPECT_EQ(Copy(L"SN"), "ZL14\t793");
}

TEST(BoardUUID, IsReadOnceAndLosesItsWhiteSpaceInTheCache) {
    Notebook machine;
    machine.change_hardware(R"({"WMIGetBoardUUID": " 7d1c\t2b5e \n"})");
    EXPECT_EQ(BoardUUID(), L" 7d1c\t2b5e \n");
    EXPECT_EQ(Value(L"GUID"), L" 7d1c\t2b5e \n");
    machine.change_hardware(R"({"WMIGetBoardUUID": "another"})");
    EXPECT_EQ(BoardUUID(), L"7d1c2b5e");
    EXPECT_EQ(Value(L"GUID"), L" 7d1c\t2b5e \n");
    SetValue(L"GUID", std::wstring(200, L'x'));
    EXPECT_EQ(BoardUUID(), std::wstring(kTextCapacity - 1, L'x')) << "within the caller's buffer";
    // Names are compared without case, so the mirrored column `guid` and this cache are one value.
    collectSystemInfoData("1", 8, 4);
    EXPECT_EQ(BoardUUID(), L"00112233-4455-6677-8899-aabbccddeeff");
    RemoveValue(L"GUID");
    machine.replace_library();
    EXPECT_EQ(BoardUUID(), L"");
    EXPECT_EQ(Value(L"GUID"), ERROR_READREG) << "without the export nothing is cached";
}

}  // namespace
}  // namespace zorvalis
