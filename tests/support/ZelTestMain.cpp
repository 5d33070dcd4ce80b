// main of the test programs that compare golden files: gtest's own main,
// plus --regenerate-golden, which rewrites the golden files instead of
// comparing them. CTest never passes it.
#include <gtest/gtest.h>

#include <cstring>

#include "ZelTestFiles.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    for (int i = 1; i < argc; ++i) gZelRegenerateGolden |= std::strcmp(argv[i], "--regenerate-golden") == 0;
    return RUN_ALL_TESTS();
}
