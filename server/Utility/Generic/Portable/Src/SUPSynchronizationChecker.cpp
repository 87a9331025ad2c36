#include "Utility/Generic/Portable/SUPOSBase.h"

#include "Utility/Generic/Portable/SUPExceptionSupport.h"

#include <atomic>
#include <cstdlib>

#if defined(BRIM_CHECKS)

namespace {

constexpr const wchar_t* kThisFile = L"server/Utility/Generic/Portable/Src/SUPSynchronizationChecker.cpp";
constexpr int kWriterLine = 35;
constexpr int kReaderLine = 47;

constexpr int kWriting = -1;

void require(bool holds, int line, const wchar_t* condition) {
    if (!holds) {
        BrimAssert::handleAssert(kThisFile, line, condition);
        std::abort();
    }
}

} // namespace

void SynchronizationChecker::acquireWriter() {
    int users = 0;
    require(std::atomic_ref<int>(m_users).compare_exchange_strong(users, kWriting), kWriterLine,
            L"m_users == 0");
}

void SynchronizationChecker::releaseWriter() { std::atomic_ref<int>(m_users).store(0); }

void SynchronizationChecker::acquireReadonlyProtection() const {
    std::atomic_ref<int> count(m_users);
    int users = count.load();
    do {
        require(users != kWriting, kReaderLine, L"m_users != kWriting");
    } while (!count.compare_exchange_weak(users, users + 1));
}

void SynchronizationChecker::releaseReadonlyProtection() const { std::atomic_ref<int>(m_users).fetch_sub(1); }

#else

void SynchronizationChecker::acquireWriter() {}
void SynchronizationChecker::releaseWriter() {}
void SynchronizationChecker::acquireReadonlyProtection() const {}
void SynchronizationChecker::releaseReadonlyProtection() const {}

#endif
