#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"

#include <atomic>
#include <cassert>
#include <thread>
#include <vector>

namespace {

std::atomic<int> freed{0};

void freeBuffer(void* buffer) {
    delete static_cast<std::vector<char>*>(buffer);
    ++freed;
}

// The calling thread's buffer, made on first use and freed when the thread ends.
std::vector<char>& threadBuffer(int key) {
    ThreadLocalStorageManager* const storage = ThreadLocalStorageManager::Make();
    void* buffer = storage->GetTlsValue(key);
    if (buffer == nullptr) {
        buffer = new std::vector<char>(4096);
        storage->ModifyTls(key, buffer, &freeBuffer);
    }
    return *static_cast<std::vector<char>*>(buffer);
}

void valuesOfThreads() {
    const int key = ThreadLocalStorageManager::Make()->CreateTls(nullptr, nullptr);
    std::thread first([key] { threadBuffer(key)[0] = 'a'; });
    std::thread second([key] { threadBuffer(key)[0] = 'b'; });
    first.join();
    second.join();
    assert(freed == 2);
}

void shareText() {
    const BrimString text(L"read by all");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([copy = text]() mutable { copy.append(L", changed by one"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    assert(text == L"read by all");
}

} // namespace

int main() {
    valuesOfThreads();
    shareText();
}
