// The checker as it acts in a checking build: its source is compiled into this program with the checks on,
// and the program's definitions win over the library's.
#include "Utility/Generic/Portable/SUPOSBase.h"

#include "child_process.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <thread>
#include <vector>

namespace {

template <class Body>
void expectAssertion(const char* condition, Body body) {
    const brimtest::ChildResult child = brimtest::runInChild(body);
    EXPECT_EQ(child.signal(), SIGABRT) << child;
    EXPECT_NE(child.output.find(condition), std::string::npos) << child;
    EXPECT_NE(child.output.find("SUPSynchronizationChecker.cpp"), std::string::npos) << child;
}

TEST(SynchronizationChecker, LetsWritersFollowEachOther) {
    SynchronizationChecker checker;
    for (int i = 0; i < 3; ++i) {
        checker.acquireWriter();
        checker.releaseWriter();
        checker.acquireReadonlyProtection();
        checker.releaseReadonlyProtection();
    }
}

TEST(SynchronizationChecker, LetsReadersOverlap) {
    const SynchronizationChecker checker;
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&] {
            for (int n = 0; n < 1000; ++n) {
                checker.acquireReadonlyProtection();
                checker.releaseReadonlyProtection();
            }
        });
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
}

TEST(SynchronizationChecker, FindsAWriterBesideAWriter) {
    expectAssertion("m_users == 0", [] {
        SynchronizationChecker checker;
        checker.acquireWriter();
        checker.acquireWriter();
    });
}

TEST(SynchronizationChecker, FindsAWriterBesideAReader) {
    expectAssertion("m_users == 0", [] {
        SynchronizationChecker checker;
        checker.acquireReadonlyProtection();
        checker.acquireWriter();
    });
}

TEST(SynchronizationChecker, FindsAReaderBesideAWriter) {
    expectAssertion("m_users != kWriting", [] {
        SynchronizationChecker checker;
        checker.acquireWriter();
        checker.acquireReadonlyProtection();
    });
}

TEST(SynchronizationChecker, FindsAWriterWhileAReaderIsLeft) {
    expectAssertion("m_users == 0", [] {
        SynchronizationChecker checker;
        checker.acquireReadonlyProtection();
        checker.acquireReadonlyProtection();
        checker.releaseReadonlyProtection();
        checker.acquireWriter();
    });
}

} // namespace
