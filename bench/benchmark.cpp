#include "Operations.h"

#include <string>

#include <benchmark/benchmark.h>

namespace {

void add(const std::string& name, void (*operation)())
{
    benchmark::RegisterBenchmark(name.c_str(), [operation](benchmark::State& state) {
        for (auto each : state) {
            (void)each;
            operation();
        }
    });
}

} // namespace

int main(int argc, char** argv)
{
    for (std::size_t i = 0; i < bench::operationCount; ++i) {
        const bench::Operation& operation = bench::operations[i];
        add(std::string(operation.name) + "/own", operation.own);
        add(std::string(operation.name) + "/floor", operation.floor);
        if (operation.other)
            add(std::string(operation.name) + "/other", operation.other);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
}
