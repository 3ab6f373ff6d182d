// Readers of text, by Google Benchmark: `build/bench/bench/texts`. Tools' outputs are the fuzzers' recorded ones.
#include "foundation/owners.h"
#include "raid/adaptec.h"
#include "raid/lsi.h"
#include "raid/model.h"
#include "raid/pci.h"
#include "torvane.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace {

using torvane::File;

File stream_of(std::string &text) { return File(fmemopen(text.data(), text.size(), "r")); }

// As many disks as asked for, with four partitions each; the one looked for is the last.
std::string partition_rows(int64_t disks) {
    std::string text = "major minor  #blocks  name\n\n";
    for (int64_t i = 0; i < disks; ++i) {
        for (int64_t row = 0; row < 5; ++row) {
            char line[80];
            std::snprintf(line, sizeof line, "%4d %8ld %10d d%ld%s%.0ld\n", 8, i * 16 + row, 1048576, i,
                          row == 0 ? "" : "p", row);
            text += line;
        }
    }
    return text;
}

void lines(benchmark::State &state) {
    std::string text = partition_rows(state.range(0));
    for ([[maybe_unused]] auto _ : state) {
        const File file = stream_of(text);
        for (char *line = nullptr; get_line(&line, file.get()) > 0;) std::free(line);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(lines)->Arg(100)->Arg(10000);

void partitions_of_the_last_disk(benchmark::State &state) {
    std::string text = partition_rows(state.range(0));
    const std::string name = "d" + std::to_string(state.range(0) - 1);
    for ([[maybe_unused]] auto _ : state) {
        PartitionList list{};
        if (parse_partition(stream_of(text).get(), name.c_str(), &list) != 0) state.SkipWithError("not found");
        for (uint32_t i = 0; i < list.count; ++i) std::free(list.entries[i].name);
        std::free(list.entries);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(partitions_of_the_last_disk)->Arg(100)->Arg(10000);

void sysfs_attribute(benchmark::State &state) {
    const std::string path = "/sys/devices/system/cpu/online";
    for ([[maybe_unused]] auto _ : state) {
        char *value = nullptr;
        if (allocate_value_from_sys_file(path.c_str(), "%[^\n]", &value) != 0) state.SkipWithError("not read");
        std::free(value);
    }
}
BENCHMARK(sysfs_attribute);

void sizes(benchmark::State &state) {
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(get_bytes_from_str("931.512 GB"));
}
BENCHMARK(sizes);

std::string recorded(const char *reader) {
    std::ifstream file(std::string(TORVANE_CORPUS "/") + reader + "/full", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// A tool's recorded output through its reader, again and again.
template <class Read> void read_recorded(benchmark::State &state, const char *reader, Read read) {
    std::string text = recorded(reader);
    if (text.empty()) return state.SkipWithError("no recorded output");
    for ([[maybe_unused]] auto _ : state) {
        if (read(stream_of(text).get()) < 0) state.SkipWithError("not read");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

void lspci(benchmark::State &state) {
    read_recorded(state, "lspci", [](FILE *file) {
        PciInfo *list = nullptr;
        uint32_t count = 0;
        const int result = torvane::parse_lspci_output(file, &list, &count);
        release_pci_info(list, static_cast<int>(count));
        return result;
    });
}
BENCHMARK(lspci);

void arcconf(benchmark::State &state) {
    read_recorded(state, "arcconf_config", [](FILE *file) {
        RaidController *list = nullptr;
        uint32_t count = 0;
        RaidController *controller = torvane::add_controllers(&list, &count, 1, RAID_TYPE_ADAPTEC, 1);
        const int result = torvane::parse_adaptec_config(file, controller);
        destroy_raids(list, static_cast<int>(count));
        return result;
    });
}
BENCHMARK(arcconf);

void megacli(benchmark::State &state) {
    read_recorded(state, "megacli_pd", [](FILE *file) {
        RaidController *list = nullptr;
        uint32_t count = 0;
        for (const char *adapter :
             {"Adapter 0 -- Virtual Drive Information:", "Adapter 3 -- Virtual Drive Information:"}) {
            RaidController *controller = create_new_controller(adapter, &list, &count);
            for (const char *group : {"Virtual Drive: 0 (Target Id: 0)", "Virtual Drive: 1 (Target Id: 1)"}) {
                (void)create_new_drive_group(group, controller);
            }
        }
        const int result = torvane::read_pdlist(file, list, count);
        destroy_raids(list, static_cast<int>(count));
        return result;
    });
}
BENCHMARK(megacli);

} // namespace

BENCHMARK_MAIN();
