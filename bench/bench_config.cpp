// SPDX-License-Identifier: LicenseRef-Tarnix
// Compares the configuration store with the bare classes that it uses: import, export, one value.
#include "cmnconfiguration.h"
#include "support/scratchdirectory.h"

#include <ace/Configuration_Import_Export.h>
#include <ace/Version.h>
#include <benchmark/benchmark.h>

#include <fstream>
#include <string>

using namespace tarnix_cmn_4_4;

namespace
{

const bool kAddedContext = [] {
    benchmark::AddCustomContext("peer ACE", ACE_VERSION);
    return true;
}();

// Writes the file "in" with `count` values, texts and numbers alternating.
void writeValues(const ScratchDirectory& directory, std::int64_t count,
                 std::int64_t inSection = 100)
{
    std::ofstream file(directory.path("in"));
    for (std::int64_t i = 0; i < count; ++i) {
        if (i % inSection == 0) {
            file << "[Section " << i / inSection << "]\n";
        }
        file << "\"Value " << i % inSection << '"';
        if (i % 2 == 0) {
            file << "=\"/opt/product/directory/" << i << "\"\n";
        } else {
            file << "=dword:0000" << 1000 + i % 1000 << '\n';
        }
    }
}

class Own
{
public:
    explicit Own(const ScratchDirectory& directory) : m_Path(directory.widePath()) {}

    int importFile(const wchar_t* file = L"in")
    {
        return m_Config.importConfig(m_Path.c_str(), file);
    }
    // An import sets the file of the next export, even if that file does not exist.
    void prepareExport() { importFile(L"out"); }
    int exportFile() { return m_Config.exportConfig(); }

    void open() { m_Config.openSection(L"Section 0", m_Key, 0); }
    unsigned int get()
    {
        unsigned int value = 0;
        m_Config.getIntegerValue(L"Value 7", value);
        return value;
    }

private:
    const std::wstring m_Path;
    CCmnConfiguration m_Config;
    ACE_Configuration_Section_Key m_Key;
};

class Bare
{
public:
    explicit Bare(const ScratchDirectory& directory)
        : m_In(directory.path("in")), m_Out(directory.path("out"))
    {
        m_Heap.open();
    }

    int importFile() { return ACE_Registry_ImpExp(m_Heap).import_config(m_In.c_str()); }
    void prepareExport() {}
    int exportFile() { return ACE_Registry_ImpExp(m_Heap).export_config(m_Out.c_str()); }

    void open() { m_Heap.open_section(m_Heap.root_section(), "Section 0", false, m_Key); }
    unsigned int get()
    {
        unsigned int value = 0;
        m_Heap.get_integer_value(m_Key, "Value 7", value);
        return value;
    }

private:
    const std::string m_In;
    const std::string m_Out;
    ACE_Configuration_Heap m_Heap;
    ACE_Configuration_Section_Key m_Key;
};

void countValues(benchmark::State& state)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

// The file that an export of the store writes.
template <class Store>
std::string exported(const ScratchDirectory& directory, Store& store)
{
    store.prepareExport();
    return store.exportFile() == 0 ? directory.read("out") : "";
}

// Each import goes into a new store.
template <class Store>
void importValues(benchmark::State& state, std::int64_t inSection)
{
    const ScratchDirectory directory;
    writeValues(directory, state.range(0), inSection);
    if (Store(directory).importFile() != 0) {
        state.SkipWithError("the import failed");
        return;
    }
    for (auto _ : state) {
        Store store(directory);
        benchmark::DoNotOptimize(store.importFile());
    }
    countValues(state);
}

template <class Store>
void imports(benchmark::State& state)
{
    importValues<Store>(state, 100);
}

template <class Store>
void importsSection(benchmark::State& state)
{
    importValues<Store>(state, state.range(0));
}

template <class Store>
void exports(benchmark::State& state)
{
    const ScratchDirectory directory;
    writeValues(directory, state.range(0));
    Bare bare(directory);
    bare.importFile();
    Store store(directory);
    store.importFile();
    const std::string wanted = exported(directory, bare);
    if (wanted.empty() || exported(directory, store) != wanted) {
        state.SkipWithError("the exported file is wrong");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.exportFile());
    }
    countValues(state);
}

template <class Store>
void get(benchmark::State& state)
{
    const ScratchDirectory directory;
    writeValues(directory, 100);
    Store store(directory);
    store.importFile();
    store.open();
    if (store.get() != 0x1007) {
        state.SkipWithError("the value is wrong");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.get());
    }
}

void counts(benchmark::internal::Benchmark* benchmark)
{
    for (const std::int64_t count : {10, 1000, 10000, 100000}) {
        benchmark->Arg(count);
    }
    benchmark->UseRealTime();
}

void once(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(100000)->Iterations(1)->Repetitions(1)->UseRealTime();
}

BENCHMARK(imports<Own>)->Name("config_import:tarnix")->Apply(counts);
BENCHMARK(imports<Bare>)->Name("config_import:ace")->Apply(counts);
// The time grows with the square of the number: 100,000 values take 25 times as long, and are
// measured once.
BENCHMARK(importsSection<Own>)->Name("config_section:tarnix")->Arg(20000)->UseRealTime();
BENCHMARK(importsSection<Bare>)->Name("config_section:ace")->Arg(20000)->UseRealTime();
BENCHMARK(importsSection<Own>)->Name("config_large_section:tarnix")->Apply(once);
BENCHMARK(importsSection<Bare>)->Name("config_large_section:ace")->Apply(once);
BENCHMARK(exports<Own>)->Name("config_export:tarnix")->Apply(counts);
BENCHMARK(exports<Bare>)->Name("config_export:ace")->Apply(counts);
BENCHMARK(get<Own>)->Name("config_get:tarnix");
BENCHMARK(get<Bare>)->Name("config_get:ace");

} // namespace

BENCHMARK_MAIN();
