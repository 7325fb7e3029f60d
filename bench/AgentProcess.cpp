#include "AgentProcess.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Bench {

namespace {

namespace fs = std::filesystem;

constexpr const char* configFile = "agent.yaml";
constexpr const char* outFile = "out";
constexpr const char* errorFile = "errors";

fs::path newDirectory() {
    std::string path = fs::temp_directory_path() / "ovix-bench-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        throw std::runtime_error("cannot make a temporary directory");
    }
    return path;
}

std::string contents(const fs::path& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void redirect(int descriptor, const fs::path& path) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0 || dup2(file, descriptor) < 0) {
        _exit(126);
    }
}

} // namespace

AgentProcess::AgentProcess(const std::string& config, const std::string& tables)
    : directory_(newDirectory()) {
    std::ofstream(directory_ / configFile) << config;
    process_ = fork();
    if (process_ == 0) {
        run(tables);
    }
    if (process_ < 0) {
        process_ = 0;
        fs::remove_all(directory_);
        throw std::runtime_error("cannot start the agent");
    }
}

AgentProcess::~AgentProcess() {
    if (process_ != 0) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
}

void AgentProcess::run(const std::string& tables) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    redirect(STDOUT_FILENO, directory_ / outFile);
    redirect(STDERR_FILENO, directory_ / errorFile);
    const std::string agent = fs::read_symlink("/proc/self/exe").replace_filename("ovix-agent");
    std::vector<std::string> words{agent,    "run",    directory_ / configFile,
                                   "--live", "--json", "--quiet"};
    if (!tables.empty()) {
        words.insert(words.end(), {"--tables", tables, "--control", directory_ / "control"});
    }
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    execv(agent.c_str(), arguments.data());
    _exit(127);
}

double AgentProcess::cpuSeconds() const {
    clockid_t clock = 0;
    timespec time{};
    if (process_ == 0 || clock_getcpuclockid(process_, &clock) != 0 ||
        clock_gettime(clock, &time) != 0) {
        throw std::runtime_error("the agent is not there: " + complaints());
    }
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

AgentBalance AgentProcess::stop() {
    int status = 0;
    kill(process_, SIGTERM);
    waitpid(process_, &status, 0);
    process_ = 0;
    if (status != 0) {
        throw std::runtime_error("the agent ended with " + std::to_string(status) + ": " +
                                 complaints());
    }
    const auto said = nlohmann::json::parse(contents(directory_ / outFile));
    return {said.at("balanced").get<bool>(), said.at("in").at("frames").get<std::uint64_t>(),
            said.at("forwarded").at("frames").get<std::uint64_t>()};
}

std::string AgentProcess::complaints() const {
    return contents(directory_ / errorFile);
}

} // namespace Bench
