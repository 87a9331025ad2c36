// The exported functions: the account of the calling thread on top of a backend. Caches of small blocks
// belong between the two, behind backend::allocate and backend::release.
#include "fenmemoryallocator864.h"

#include "backend.h"
#include "report_writer.h"
#include "thread_account.h"

namespace {

using fenmem::ReportWriter;
using fenmem::ThreadAccount;
namespace backend = fenmem::backend;

// Initial-exec: one instruction to reach, where the general model would call the dynamic linker.
__attribute__((tls_model("initial-exec"))) constinit thread_local ThreadAccount t_account;

} // namespace

void* fenmem_800_allocate_dbg(size_t size, const char* /*file*/, int /*line*/) noexcept {
    ThreadAccount& account = t_account;
    if (size > backend::kLargestRequest || !account.allows(size)) {
        return nullptr;
    }
    void* const p = backend::allocate(size);
    if (p != nullptr) {
        account.charge(size);
    }
    return p;
}

void fenmem_800_free(void* p, size_t size) noexcept {
    if (p == nullptr) {
        return;
    }
    t_account.credit(size);
    backend::release(p, size);
}

void fenmem_800_compact() noexcept { backend::compact(); }

void fenmem_800_associate() noexcept { backend::bindThread(); }

void fenmem_800_disassociate() noexcept { backend::unbindThread(); }

void fenmem_800_flush() noexcept { backend::flushThread(); }

int fenmem_800_thread_alloc_enable_default_quota() noexcept {
    t_account.limit = static_cast<std::int64_t>(FENMEM_800_DEFAULT_THREAD_QUOTA);
    return 1;
}

int fenmem_800_thread_alloc_disable_quota() noexcept {
    t_account.limit = ThreadAccount::kNoLimit;
    return 1;
}

void fenmem_800_log_diagnostics_information(void* context, void (*callback)(void* context, const char* text,
                                                                            size_t length)) noexcept {
    if (callback == nullptr) {
        return;
    }
    const ThreadAccount account = t_account;
    ReportWriter writer(context, callback);
    writer << "fenmemoryallocator864, variant " << backend::kVariant << "\n";
    writer << "calling thread holds " << account.held << " bytes, quota ";
    if (account.limit == ThreadAccount::kNoLimit) {
        writer << "off\n";
    } else {
        writer << account.limit << " bytes\n";
    }
    backend::report(writer);
}
