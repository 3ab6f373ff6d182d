// changes TORVANE SECONDS [SEED]: plugs and pulls disks in random order while the library and the tool are asked, and
// holds every answer against what was there. Runs in the machine `changes`.
#include "changes/callers.h"
#include "changes/hands.h"
#include "readers.h"

#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

using namespace changes;
constexpr const char *kFolder = "/run/changes";

[[noreturn]] void be_a_caller(const Loop &loop, unsigned seed, Time end) {
    std::mt19937 random(seed);
    std::ofstream answers(std::string(kFolder) + "/" + loop.name);
    while (now() < end) {
        for (const Answer &answer : loop.ask(random)) answers << nlohmann::json(answer) << std::endl;
    }
    _exit(answers ? 0 : 1);
}

struct Tally {
    int calls = 0;
    Time longest = 0;
    std::map<std::string, int> failures;
};

class Judge {
  public:
    explicit Judge(const std::vector<Disk> &disks) : disks_(disks) {}

    void hear(const std::string &loop) {
        std::ifstream answers(std::string(kFolder) + "/" + loop);
        for (std::string line; std::getline(answers, line);) {
            const Answer answer = nlohmann::json::parse(line).get<Answer>();
            Tally &tally = tallies_[answer.call];
            ++tally.calls;
            tally.longest = std::max(tally.longest, answer.end - answer.begin);
            if (!answer.failure.empty()) ++tally.failures[kind_of(answer.failure)];
            const std::string fault = fault_of(answer, disks_);
            if (!fault.empty())
                blame(answer.call + " " + std::to_string(answer.begin) + "-" + std::to_string(answer.end) + ": " +
                      fault);
        }
    }

    void blame(const std::string &fault) {
        ++faults_;
        std::printf("FAULT %s\n", fault.c_str());
    }

    void print() const {
        for (const auto &[call, tally] : tallies_) {
            std::printf("%6d calls of %s, the longest %.1f s\n", tally.calls, call.c_str(),
                        static_cast<double>(tally.longest) / 1000);
            for (const auto &[words, count] : tally.failures)
                std::printf("       %5d failures: %s\n", count, words.c_str());
        }
        std::printf("%d faults\n", faults_);
    }

    [[nodiscard]] int faults() const { return faults_; }

  private:
    const std::vector<Disk> &disks_;
    std::map<std::string, Tally> tallies_;
    int faults_ = 0;
};

void print_stays(const std::vector<Disk> &disks) {
    for (const Disk &disk : disks) {
        for (const Stay &stay : disk.stays) {
            std::printf("%s %s plugged %ld-%ld pulled %ld-%ld\n", disk.id.c_str(), stay.name.c_str(), stay.plugged_from,
                        stay.plugged_by, stay.pulled_from, stay.pulled_by);
        }
    }
}

// The host's /tmp shows through, where others work meanwhile: it is put aside. Where the tool is now.
std::string put_tmp_aside(const std::string &torvane) {
    const std::string aside = std::string(kFolder) + "/tmp";
    std::filesystem::create_directories(aside);
    if (mount("/tmp", aside.c_str(), nullptr, MS_BIND, nullptr) != 0) return "";
    if (mount("tmpfs", "/tmp", "tmpfs", 0, nullptr) != 0) return "";
    return torvane.starts_with("/tmp/") ? aside + torvane.substr(4) : torvane;
}

int test(const std::string &given, Time seconds, unsigned seed) {
    std::printf("seed %u, %ld s\n", seed, seconds);
    std::fflush(stdout);
    const std::string torvane = put_tmp_aside(given);
    if (torvane.empty()) return 1;
    const std::set<std::string> before = leavings(torvane);
    Hands hands(seed);
    const Time end = now() + seconds * 1000;
    std::map<pid_t, std::string> callers;
    for (const Loop &loop : all_loops(torvane)) {
        const pid_t pid = fork();
        if (pid == 0) be_a_caller(loop, ++seed, end);
        callers[pid] = loop.name;
    }
    hands.work_until(end);
    Judge judge(hands.disks());
    for (const auto &[pid, name] : callers) {
        int status = 0;
        waitpid(pid, &status, 0);
        if (status != 0) judge.blame("the caller " + name + " ended with status " + std::to_string(status));
    }
    truth::output_of("udevadm settle");
    for (const auto &[pid, name] : callers) judge.hear(name);
    if (!truth::holds_soon([&] { return leavings(torvane) == before; }, std::chrono::seconds(120))) {
        for (const std::string &thing : leavings(torvane)) {
            if (!before.contains(thing)) judge.blame("left behind: " + thing);
        }
    }
    const std::string oops =
        truth::output_of("dmesg | grep -E 'BUG:|Oops|general protection|hung_task|blocked for more'");
    if (!oops.empty()) judge.blame("the kernel: " + oops);
    if (judge.faults() > 0) print_stays(hands.disks());
    for (const auto &[what, count] : hands.counts()) std::printf("%6d times %s\n", count, what.c_str());
    judge.print();
    return judge.faults() == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 3) return 2;
    return test(argv[1], std::atol(argv[2]),
                argc > 3 ? static_cast<unsigned>(std::atol(argv[3])) : std::random_device{}());
}
