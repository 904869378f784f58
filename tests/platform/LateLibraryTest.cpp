#include "platform/LateLibrary.h"

#include <gtest/gtest.h>

#include <string>
#include <system_error>

using qz::platform::LateFunction;
using qz::platform::LateLibrary;

TEST(LateLibraryTest, CallsWhatIsThereAndTellsWhatIsNot)
{
    const LateLibrary library("libm.so.6");
    EXPECT_EQ(LateFunction<double(double)>(library, "floor")(2.5), 2);
    EXPECT_THROW(library.function<void()>("no_such_function"), std::system_error);
    try {
        const LateLibrary missing("libnosuchthing.so.4");
        FAIL() << "was loaded";
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string(error.what()).find("libnosuchthing.so.4"), std::string::npos) << error.what();
    }
}
