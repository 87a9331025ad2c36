// What the provider keeps for each thread: its account and its lists of free blocks.
#pragma once

#include "block_lists.h"
#include "thread_account.h"

namespace fenmem {

struct ThreadState {
    ThreadAccount account;
    block_lists::ThreadLists* lists = block_lists::kNoLists;
};

/// Initial-exec: one instruction to reach, where the general model would call the dynamic linker. The static
/// room that this takes is scarce in a library that is opened late: keep it small.
extern __attribute__((tls_model("initial-exec"))) constinit thread_local ThreadState t_thread;

} // namespace fenmem
