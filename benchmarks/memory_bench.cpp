// Small blocks through the allocator gateway, as the strings take them, against mimalloc called directly and
// the C runtime's malloc.
//
// mimalloc is opened with local scope: linked, it would take over malloc for the whole program, and so for
// every peer.
#include "Utility/Generic/Portable/BrimNodeAlloc.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Brim {
    static void* allocate(std::size_t size) { return BrimNodeAlloc::allocate(size, __FILE__, 1); }
    static void release(void* p, std::size_t size) { BrimNodeAlloc::deallocate(p, size); }
};

struct Mimalloc {
    static bool open() {
        void* const library = ::dlopen("libmimalloc.so.2", RTLD_NOW | RTLD_LOCAL);
        return library != nullptr && find(library, "mi_malloc", s_malloc) && find(library, "mi_free", s_free);
    }
    static void* allocate(std::size_t size) { return s_malloc(size); }
    static void release(void* p, std::size_t /*size*/) { s_free(p); }

private:
    template <class Function>
    static bool find(void* library, const char* name, Function& function) {
        void* const symbol = ::dlsym(library, name);
        std::memcpy(&function, &symbol, sizeof symbol);
        return symbol != nullptr;
    }
    static inline void* (*s_malloc)(std::size_t) = nullptr;
    static inline void (*s_free)(void*) = nullptr;
};

struct Malloc {
    static void* allocate(std::size_t size) { return std::malloc(size); }
    static void release(void* p, std::size_t /*size*/) { std::free(p); }
};

std::size_t sizeArgument(const benchmark::State& state) { return static_cast<std::size_t>(state.range(0)); }

// As an owner of a new block does.
template <class Peer>
void* makeNode(std::size_t size) {
    void* const node = Peer::allocate(size);
    *static_cast<std::size_t*>(node) = size;
    return node;
}

void countNodes(benchmark::State& state, std::size_t nodes) {
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(nodes));
}

// ---- One thread -------------------------------------------------------------------------------------------

template <class Peer>
void BM_NodePair(benchmark::State& state) {
    const std::size_t size = sizeArgument(state);
    for (auto _ : state) {
        void* const node = makeNode<Peer>(size);
        benchmark::DoNotOptimize(node);
        Peer::release(node, size);
    }
}

// All made, then all released in the same order.
template <class Peer>
void BM_NodeBatch(benchmark::State& state) {
    const std::size_t size = sizeArgument(state);
    std::vector<void*> nodes(1024);
    for (auto _ : state) {
        for (void*& node : nodes) {
            node = makeNode<Peer>(size);
        }
        for (void* const node : nodes) {
            Peer::release(node, size);
        }
    }
    countNodes(state, nodes.size());
}

// One of 64 Ki live nodes goes, chosen at random, and another one comes.
template <class Peer>
void BM_NodeChurn(benchmark::State& state) {
    const std::size_t size = sizeArgument(state);
    std::vector<void*> nodes(65536);
    for (void*& node : nodes) {
        node = makeNode<Peer>(size);
    }
    std::minstd_rand random(1);
    for (auto _ : state) {
        void*& node = nodes[random() % nodes.size()];
        Peer::release(node, size);
        node = makeNode<Peer>(size);
    }
    for (void* const node : nodes) {
        Peer::release(node, size);
    }
}

// ---- Two threads ------------------------------------------------------------------------------------------

// This thread makes the nodes; a new one, whose life is part of the time, releases them.
template <class Peer>
void BM_NodesFreedByAnotherThread(benchmark::State& state) {
    constexpr std::size_t kSize = 112;
    std::vector<void*> nodes(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        for (void*& node : nodes) {
            node = makeNode<Peer>(kSize);
        }
        std::thread([&nodes] {
            for (void* const node : nodes) {
                Peer::release(node, kSize);
            }
        }).join();
    }
    countNodes(state, nodes.size());
}

// A string of 20 wide characters takes 112 bytes, one of 250 takes 1,032.
template <class Peer>
void registerPeer(const char* peer) {
    const auto name = [peer](const char* what) { return std::string("BM_") + what + "<" + peer + ">"; };
    benchmark::RegisterBenchmark(name("NodePair").c_str(), BM_NodePair<Peer>)->Arg(32)->Arg(112)->Arg(1032);
    benchmark::RegisterBenchmark(name("NodeBatch").c_str(), BM_NodeBatch<Peer>)->Arg(32)->Arg(112)->Arg(1032);
    benchmark::RegisterBenchmark(name("NodeChurn").c_str(), BM_NodeChurn<Peer>)->Arg(112);
    // Two threads take turns: the time of both counts.
    benchmark::RegisterBenchmark(name("NodesFreedByAnotherThread").c_str(),
                                 BM_NodesFreedByAnotherThread<Peer>)
        ->Arg(1024)
        ->Arg(65536)
        ->MeasureProcessCPUTime();
}

// Whatever was opened: an allocator library in the program's scope would serve the peers too.
void requireMallocOfTheCLibrary() {
    Dl_info owner = {};
    ::dladdr(::dlsym(RTLD_DEFAULT, "malloc"), &owner);
    if (owner.dli_fname == nullptr || std::strstr(owner.dli_fname, "libc.so") == nullptr ||
        ::dlsym(RTLD_DEFAULT, "mi_malloc") != nullptr) {
        std::fprintf(stderr, "malloc is not the C library's\n");
        std::exit(1);
    }
}

} // namespace

int main(int argc, char** argv) {
    const bool hasMimalloc = Mimalloc::open();
    requireMallocOfTheCLibrary();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    registerPeer<Brim>("Brim");
    registerPeer<Malloc>("Malloc");
    if (hasMimalloc) {
        registerPeer<Mimalloc>("Mimalloc");
    } else {
        std::fprintf(stderr, "left out: mimalloc is not installed\n");
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
