#include "Operations.h"
#include "Peers.h"

#include <cstdio>
#include <exception>
#include <string>

#include <benchmark/benchmark.h>

// Benchmarks are named OPERATION/VARIANT, where the variant is own, floor or a peer.

namespace {

benchmark::internal::Benchmark* add(const std::string& operation, const char* variant,
                                    bench::Function run)
{
    return benchmark::RegisterBenchmark((operation + '/' + variant).c_str(),
                                        [run](benchmark::State& state) {
                                            for (auto each : state) {
                                                (void)each;
                                                run();
                                            }
                                        });
}

void addAll()
{
    for (const bench::Operation& operation : bench::operations) {
        add(operation.name, "own", operation.own);
        if (operation.floor)
            add(operation.name, "floor", operation.floor);
    }
    for (const bench::Peer& peer : bench::allPeers) {
        benchmark::internal::Benchmark* const added = add(peer.operation, peer.name, peer.run);
        if (std::string(peer.operation) == "round-trip")
            added->UseRealTime(); // another thread has a share of the work
    }

    const bench::Operation& send = bench::operations[0];
    for (const int threads : {1, 2, 4}) {
        const std::string name = std::string(send.name) + "-by-" + std::to_string(threads);
        add(name, "own", send.own)->Threads(threads)->UseRealTime();
        add(name, "floor", send.floor)->Threads(threads)->UseRealTime();
    }
}

} // namespace

int main(int argc, char** argv)
{
    addAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    try {
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench-time: %s\n", error.what());
        return 1;
    }
}
