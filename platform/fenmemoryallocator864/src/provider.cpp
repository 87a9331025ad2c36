// The exported functions: the account of the calling thread, lists of free small blocks below it, and a
// backend below those.
#include "fenmemoryallocator864.h"

#include "backend.h"
#include "block_lists.h"
#include "report_writer.h"
#include "thread_state.h"

namespace {

using fenmem::ReportWriter;
using fenmem::t_thread;
using fenmem::ThreadAccount;
namespace backend = fenmem::backend;
namespace lists = fenmem::block_lists;

// Apart from the exported functions, which then need no stack.

[[gnu::noinline]] void* allocateElsewhere(size_t size) {
    ThreadAccount& account = t_thread.account;
    if (size > backend::kLargestRequest || !account.allows(size)) {
        return nullptr;
    }
    void* const p = lists::allocate(size);
    if (p != nullptr) {
        account.charge(size);
    }
    return p;
}

} // namespace

__attribute__((tls_model("initial-exec"))) constinit thread_local fenmem::ThreadState fenmem::t_thread;

void* fenmem_800_allocate_dbg(size_t size, const char* /*file*/, int /*line*/) noexcept {
    if (t_thread.account.allows(size)) {
        if (void* const p = lists::take(t_thread.lists, size)) {
            t_thread.account.charge(size);
            return p;
        }
    }
    return allocateElsewhere(size);
}

void fenmem_800_free(void* p, size_t size) noexcept {
    if (p == nullptr) {
        return;
    }
    t_thread.account.credit(size);
    if (!lists::keep(t_thread.lists, p, size)) {
        lists::release(p, size);
    }
}

void fenmem_800_compact() noexcept {
    lists::compact();
    backend::compact();
}

void fenmem_800_associate() noexcept {
    lists::bindThread();
    backend::bindThread();
}

void fenmem_800_disassociate() noexcept {
    lists::unbindThread();
    backend::unbindThread();
}

void fenmem_800_flush() noexcept {
    lists::flushThread();
    backend::flushThread();
}

int fenmem_800_thread_alloc_enable_default_quota() noexcept {
    t_thread.account.setLimit(static_cast<std::int64_t>(FENMEM_800_DEFAULT_THREAD_QUOTA));
    return 1;
}

int fenmem_800_thread_alloc_disable_quota() noexcept {
    t_thread.account.setLimit(ThreadAccount::kNoLimit);
    return 1;
}

void fenmem_800_log_diagnostics_information(void* context, void (*callback)(void* context, const char* text,
                                                                            size_t length)) noexcept {
    if (callback == nullptr) {
        return;
    }
    const ThreadAccount account = t_thread.account;
    ReportWriter writer(context, callback);
    writer << "fenmemoryallocator864, variant " << backend::kVariant << "\n";
    writer << "calling thread holds " << account.held() << " bytes, quota ";
    if (account.limit() == ThreadAccount::kNoLimit) {
        writer << "off\n";
    } else {
        writer << account.limit() << " bytes\n";
    }
    lists::report(writer);
    backend::report(writer);
}
