// The main function of every test program: the Xerces platform lives as long as the tests, as it does in a server.

#include <gtest/gtest.h>

#include <csignal>
#include <xercesc/util/PlatformUtils.hpp>

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);            // a write to a closed pipe or connection is to fail with EPIPE
    xercesc::XMLPlatformUtils::Initialize();  // first: the parameters of tests may hold what the parser makes
    testing::InitGoogleTest(&argc, argv);
    int const result = RUN_ALL_TESTS();
    xercesc::XMLPlatformUtils::Terminate();
    return result;
}
