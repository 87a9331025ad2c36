// A value of each thread under one key: counts words of its arguments, a thread for each argument, and adds
// up the threads' counts as they end.
//
//   thread_values TEXT...
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"

#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

constexpr unsigned int kUtf8 = 65001;

std::atomic<std::size_t> total{0};

// Runs on the thread that stored the count, when it ends.
void addToTotal(void* count) {
    total += *static_cast<std::size_t*>(count);
    delete static_cast<std::size_t*>(count);
}

std::size_t& countOfThisThread(int key) {
    ThreadLocalStorageManager* const storage = ThreadLocalStorageManager::Make();
    if (!storage->IsTlsExisted(key)) {
        storage->ModifyTls(key, new std::size_t(0), &addToTotal);
    }
    return *static_cast<std::size_t*>(storage->GetTlsValue(key));
}

void countWords(int key, const BrimString& text) {
    BrimStringVector words;
    BaseStringUtil::Tokenize(text, L" \t\n", words, false, false);
    countOfThisThread(key) += words.size();
}

} // namespace

int main(int argc, char** argv) {
    // Draws the key; the main thread stores nothing of its own.
    const int key = ThreadLocalStorageManager::Make()->CreateTls(nullptr, nullptr);
    std::vector<std::thread> threads;
    for (int i = 1; i < argc; ++i) {
        threads.emplace_back(countWords, key, BaseStringUtil::StringFrom(argv[i], kUtf8));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::printf("%zu words in %d texts\n", total.load(), argc - 1);
}
