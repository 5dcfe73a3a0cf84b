// Entry of every test binary: marks the main thread and joins the workers at the end.

#include "Core/OS/QLM_OS.h"
#include "Core/Threads/QLM_ThreadCruncher.h"

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    QLM_OS::SetMainThread();
    const int result = RUN_ALL_TESTS();
    QLM_ShutdownCrunchers();
    return result;
}
