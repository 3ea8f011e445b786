// Dynamic modules, with two that were built for this test.
#include <dlfcn.h>

#include <gtest/gtest.h>
#include <vyx/sys.h>

namespace {

TEST(Module, NeedsItsSymbolsWhenLoadedAndFindsThemInOneLoadedEarlier) {
    EXPECT_EQ(VYX_LoadDSo(MODULE_USER), nullptr) << "all symbols are bound at once, and one is missing";
    const VYX_HANDLE_DSO hBase = VYX_LoadDSo(MODULE_BASE);
    ASSERT_NE(hBase, nullptr) << dlerror();
    const VYX_HANDLE_DSO hUser = VYX_LoadDSo(MODULE_USER);
    ASSERT_NE(hUser, nullptr) << dlerror();
    const auto fnAnswer = reinterpret_cast<int (*)()>(VYX_GetDsoSym(hUser, "vyx_test_user_answer"));
    ASSERT_NE(fnAnswer, nullptr);
    EXPECT_EQ(fnAnswer(), 43);
    EXPECT_EQ(VYX_GetDsoSym(hUser, "vyx_test_no_such_name"), nullptr);
    EXPECT_NE(dlerror(), nullptr) << "the loader's text is left for the caller";
    EXPECT_EQ(VYX_GetDsoSym(hUser, nullptr), nullptr);
    EXPECT_EQ(VYX_UnloadDSo(hUser), VYX_OK);
    EXPECT_EQ(VYX_UnloadDSo(hBase), VYX_OK);
    EXPECT_EQ(dlopen(MODULE_USER, RTLD_LAZY | RTLD_NOLOAD), nullptr) << "it is really gone";
}

TEST(Module, WhatIsNoModule) {
    EXPECT_EQ(VYX_LoadDSo(nullptr), nullptr);
    EXPECT_EQ(VYX_LoadDSo(__FILE__), nullptr);
    EXPECT_EQ(VYX_UnloadDSo(nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_GetDsoSym(nullptr, "malloc"), nullptr) << "null is not the whole program";
}

} // namespace
