#include "raid_tools.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>

using namespace torvane::world;

namespace {

const std::string kSmallLsi =
    "|2|0|\n|0|DATA|/dev/raid_2_0_0|8192|\n|2|/dev/sg_raid_2_0_2|LS0|ACME L1|(0, 2)|4096|\n|single|0|\n";
const std::string kSmallAdaptec =
    "|0|1|\n|0|DATA|/dev/raid_0_1_0|8192|\n|0|/dev/sg_raid_0_1_0|S0|ACME D1|(0, 0)|4096|\n|single|0|\n";

// What tools of both makers print on one machine, and the truth about it; read before anything is mounted over.
const std::map<std::string, std::string> kBoth = [] {
    std::map<std::string, std::string> texts;
    for (const auto &file :
         std::filesystem::directory_iterator(TORVANE_SOURCE_DIRECTORY "/tests/world/outputs/both_makers"))
        texts[file.path().filename()] = read_file(file.path());
    return texts;
}();

class Raid : public RaidTest {
  protected:
    // The presence tests' verdict where /bin/sh knows "&>"; dash says yes to all.
    static void answer_presence(bool arcconf, bool megacli) {
        answers().system = [=](const char *command) -> std::optional<int> {
            const bool found = strcmp(command, "which arcconf &> /dev/null") == 0 ? arcconf : megacli;
            return found ? 0 : 256;
        };
    }

    std::string adaptec(const std::string &config) {
        arcconf("Controllers found: 1\n", {config});
        forget();
        const int result = get_raids_adaptec(&list, &count);
        return result == 0 ? described() : std::to_string(result);
    }
};

TEST_F(Raid, ControllersOfBothMakersAreReadAndNamed) {
    answer_presence(true, true);
    arcconf(kBoth.at("arcconf_getversion"), {kBoth.at("arcconf_getconfig_1"), kBoth.at("arcconf_getconfig_2")});
    megacli(kBoth.at("megacli_ldinfo"), kBoth.at("megacli_pdlist"));
    lspci(kBoth.at("lspci"));
    adapter("01:00.0", 4);
    adapter("02:00.0", 5);
    adapter("03:00.0", 6);
    logical_drive("sda", 0, "4:2:3:0");
    logical_drive("sdb", 16, "5:2:3:0");
    logical_drive("sdc", 32, "6:0:0:0", "BOX DATA");
    world.disk({.name = "sdd", .minor = 48, .model = "Plain", .address = "7:0:0:0"});
    for (const auto &[number, serial] :
         {std::pair(1, "LS1"), {2, "0000000A000012345678"}, {3, "SER2"}, {4, "0000000A"}, {5, "SPARE"}}) {
        generic_node(number, serial);
    }
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(described(), kBoth.at("truth"));
}

TEST_F(Raid, AToolWhoseEndNobodyCanTellHasFailed) {
    lspci("");
    megacli(kSmallLogical, kSmallPhysical);
    std::signal(SIGCHLD, SIG_IGN); // the kernel then reaps for itself
    EXPECT_EQ(get_raids_lsi(&list, &count), -1);
    std::signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(text_of(TORVANE_ERROR_RAID), "failed to read raid information with 'timeout 20 megacli -ldinfo -lAll "
                                           "-aAll' (No child processes)");
}

TEST_F(Raid, SignalsDoNotShortenWhatToolsSay) {
    lspci("");
    answer_presence(false, true);
    megacli(kSmallLogical, kSmallPhysical);
    struct sigaction handler = {}; // without SA_RESTART
    handler.sa_handler = [](int) {};
    sigaction(SIGALRM, &handler, nullptr);
    const itimerval often = {{0, 2000}, {0, 2000}};
    const itimerval never = {};
    for (int i = 0; i < 5; ++i) {
        setitimer(ITIMER_REAL, &often, nullptr);
        const int result = read();
        setitimer(ITIMER_REAL, &never, nullptr);
        EXPECT_EQ(result, 0);
        EXPECT_EQ(described(), kSmallLsi);
    }
}

TEST_F(Raid, AMakerWithoutItsToolCostsNothingOneThatFailsItsOwnOrAll) {
    lspci("");
    const auto both = [this] {
        arcconf("Controllers found: 1\n", {small_config()});
        megacli(kSmallLogical, kSmallPhysical);
        EXPECT_EQ(read(), 0);
        EXPECT_EQ(described(), kSmallLsi + kSmallAdaptec);
    };
    both();
    world.remove("/run/programs/arcconf");
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(described(), kSmallLsi);
    world.program("arcconf", "exit 127");
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(described(), "") << "there, but failing";
    answer_presence(false, true);
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(described(), kSmallLsi);
    answers().system = nullptr;
    both();
    megacli(kSmallLogical, kSmallPhysical + "Inquiry Data: short\n");
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(described(), kSmallAdaptec);
    megacli(kSmallLogical, "");
    arcconf("Controllers found: 1\n", {"Logical device number 0\n"});
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(described(), "") << "a group without a size";
    both();
    world.program("lspci", "exit 1");
    EXPECT_EQ(read(), -1);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(text_of(TORVANE_ERROR_RAID), "failed to read lspci information from 'lspci -v' (exit code 1)");
    lspci("");
    world.remove("/proc/partitions");
    EXPECT_EQ(read(), -1);
}

TEST_F(Raid, AToolsEndOutranksWhatItPrinted) {
    using Runner = int (*)(RaidController **, uint32_t *);
    const auto end_of = [this](Runner run) {
        forget();
        EXPECT_EQ(run(&list, &count), -1);
        return text_of(TORVANE_ERROR_RAID);
    };
    const std::string failing = "echo Controllers found: x; echo Inquiry Data: x; echo oops >&2; exit 3";

    world.program("arcconf", failing);
    EXPECT_EQ(end_of(get_raids_adaptec), "failed to read number of raid controllers (exit code 3)");
    world.program("arcconf", kKilled);
    EXPECT_EQ(end_of(get_raids_adaptec), "failed to read number of raid controllers (killed process)");
    for (const auto &[end, words] : {std::pair(failing, "(exit code 3)"), {kKilled, "(killed process)"}}) {
        world.program("arcconf", "[ $1 = getversion ] && { echo 'Controllers found: 1'; exit 0; }\n" + end);
        EXPECT_EQ(end_of(get_raids_adaptec), std::string("failed to read controller information ") + words);
    }
    const std::string lsi = "failed to read raid information with 'timeout 20 megacli -";
    world.program("megacli", failing);
    EXPECT_EQ(end_of(get_raids_lsi), lsi + "ldinfo -lAll -aAll' (exit code 3)");
    world.program("timeout", "[ \"$1 $2\" = '20 megacli' ] && exit 124");
    EXPECT_EQ(end_of(get_raids_lsi), lsi + "ldinfo -lAll -aAll' (exit code 124)");
    world.program("timeout", kKilled);
    EXPECT_EQ(end_of(get_raids_lsi), lsi + "ldinfo -lAll -aAll' (killed process)");
    world.program("timeout", "[ $3 = -ldinfo ] && exit 0\n" + failing);
    EXPECT_EQ(end_of(get_raids_lsi), lsi + "pdlist -aAll' (exit code 3)");
    world.program("lspci", kKilled);
    EXPECT_EQ(end_of([](RaidController **, uint32_t *) {
                  PciInfo *adapters = nullptr;
                  uint32_t found = 0;
                  return lookup_pci_info(&adapters, &found);
              }),
              "failed to read lspci information from 'lspci -v' (killed process)");
}

TEST_F(Raid, TheLogThatMegacliLeavesIsRemoved) {
    const int before = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); // it may lie below what the fixture hides
    std::filesystem::current_path("/tmp");
    const std::string leave = "[ -e MegaSAS.log ] && exit 9\necho x > MegaSAS.log\n";
    world.program("megacli", leave);
    EXPECT_EQ(get_raids_lsi(&list, &count), 0);
    world.program("megacli", leave + "exit 1");
    EXPECT_EQ(get_raids_lsi(&list, &count), -1);
    EXPECT_EQ(world.leftovers(), std::vector<std::string>{});
    EXPECT_EQ(fchdir(before), 0);
    close(before);
}

TEST_F(Raid, AdaptecOutputThatCannotBeRight) {
    const std::string group = "Logical device number 0\n";
    const std::string segment = "   Segment 0   : Present (Controller:1,Enclosure:0,Slot:0) S0\n";
    for (const std::string &text : {
             std::string("Logical device number none\n"),
             logical_line("Logical device name", "X"),
             logical_line("Size", "1 GB"),
             segment,
             std::string("  Device #none\n"),
             "  Device is a Hard drive\n" + physical_line("Model", "nobody's"),
             group + logical_line("Size", "."),
             group + logical_line("Logical device name", ""),
             group + segment + device_section({.serial = "other"}),
             group + segment + device_section({.location = "Enclosure 0"}),
             device_section({.location = ""}),
             device_section({.vendor = " "}),
             device_section({.model = " "}),
             device_section({.serial = " "}),
             device_section({.size = "-"}),
         }) {
        EXPECT_EQ(adaptec(text + small_config()), "-1") << text;
    }
    const std::string none = "|0|1|\n|single|0|\n";
    EXPECT_EQ(adaptec("   Segment 0   : Missing\n   Segment 1\n"), none);
    EXPECT_EQ(adaptec(device_section({.location = "", .kind = "Tape"})), none);
    EXPECT_EQ(adaptec(physical_line("Serial number", "X") + physical_line("Total Size", "1 KB")), none) << "nobody's";
    for (const char *line : {"Controllers found: x\n", "Controllers found: 4294967295\n"}) {
        arcconf(std::string("Controllers found: 0\n") + line, {small_config()});
        forget();
        EXPECT_EQ(get_raids_adaptec(&list, &count), -1) << line;
    }
    arcconf("Controllers found: 0\n");
    forget();
    EXPECT_EQ(get_raids_adaptec(&list, &count), 0) << "without asking for a configuration";
    EXPECT_EQ(list, nullptr);
}

TEST_F(Raid, EndlessOutputIsReadToItsEndInConstantMemory) {
    const auto peak = [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss; // KiB
    };
    [[maybe_unused]] const long before = peak();
    world.program("megacli", "yes 'Virtual Drive: x' | head -c 50000000\ntouch /run/ended");
    EXPECT_EQ(get_raids_lsi(&list, &count), -1);
    EXPECT_TRUE(std::filesystem::exists("/run/ended")) << "not read to the end";
#if !defined(__SANITIZE_ADDRESS__)
    EXPECT_LT(peak() - before, 20000);
#endif
}

} // namespace
