#include <gtest/gtest.h>
#include <string>

#include "Plugin/Loader.h"

namespace LibraryTest {

namespace {

using Plugin::Library;
using Plugin::LoadError;

std::string refusalOf(const std::string& file) {
    try {
        Library::load(file);
    } catch (const LoadError& refused) {
        return refused.what();
    }
    return "loaded";
}

TEST(Library, LoadsASharedLibraryAsOftenAsAsked) {
    EXPECT_EQ(refusalOf("libm.so.6"), "loaded");
    EXPECT_EQ(refusalOf("libm.so.6"), "loaded");
}

TEST(Library, NamesTheFileAndTheReasonWhenItIsAbsent) {
    EXPECT_EQ(refusalOf("/absent/libplugin.so"),
              "cannot load plugin /absent/libplugin.so: /absent/libplugin.so: cannot open shared "
              "object file: No such file or directory");
}

TEST(Library, NamesTheFileAndTheReasonWhenItIsNoLibrary) {
    const std::string file = __FILE__;
    const std::string refusal = refusalOf(file);
    EXPECT_EQ(refusal.rfind("cannot load plugin " + file + ": ", 0), 0U) << refusal;
    EXPECT_NE(refusal.find("invalid ELF header"), std::string::npos) << refusal;
}

TEST(Library, DoesNotTakeTheProgramItselfForAnUnnamedPlugin) {
    EXPECT_EQ(refusalOf(""), "cannot load plugin: the file name is empty");
}

} // namespace

} // namespace LibraryTest
