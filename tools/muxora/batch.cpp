#include "muxora/batch.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>

#include "common/errors.h"
#include "common/format_list.h"
#include "common/json.h"
#include "common/pace.h"
#include "common/text.h"

namespace Orvane::Muxora::Tools {

namespace {

namespace fs = std::filesystem;

// One file on its way through a process; what it prints comes through two pipes.
struct Job {
    std::string input;
    std::string output;
    pid_t process = -1;
    int out = -1;
    int err = -1;
    std::string out_text;
    std::string err_text;
    bool ok = false;
};

std::string ExtensionOf(const Format& format) {
    const std::string_view all = format.extensions;
    const std::string_view first = all.substr(0, std::min(all.find(' '), all.size()));
    return std::string(first.empty() ? format.key : first);
}

std::vector<std::string> Words(const PackArguments& arguments, const Job& job) {
    std::vector<std::string> words{"muxora", "pack", "--json", "-f", arguments.format_key, "-o", job.output};
    const auto add = [&](bool when, std::vector<std::string> more) {
        if (when) words.insert(words.end(), more.begin(), more.end());
    };
    const InputArguments& input = arguments.input;
    add(input.fps != 0, {"--fps", std::to_string(input.fps)});
    add(input.duration > 0, {"--duration", std::to_string(input.duration)});
    add(input.video >= 0, {"--video", std::to_string(input.video)});
    add(input.audio >= 0, {"--audio", std::to_string(input.audio)});
    add(input.no_video, {"--no-video"});
    add(input.no_audio, {"--no-audio"});
    add(arguments.strict, {"--strict"});
    add(arguments.reserve != 0, {"--reserve", std::to_string(arguments.reserve)});
    add(!arguments.key.file.empty(), {"--key-file", arguments.key.file});
    add(!arguments.encrypt.empty(), {"--encrypt", arguments.encrypt});
    add(true, {"--", job.input});
    return words;
}

void Start(const PackArguments& arguments, Job& job) {
    int out[2];
    int err[2];
    if (pipe2(out, O_CLOEXEC) != 0) throw Failure(std::string("cannot make a pipe: ") + std::strerror(errno));
    if (pipe2(err, O_CLOEXEC) != 0) {
        close(out[0]);
        close(out[1]);
        throw Failure(std::string("cannot make a pipe: ") + std::strerror(errno));
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    std::vector<std::string> words = Words(arguments, job);
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const int result = posix_spawn(&job.process, "/proc/self/exe", &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    close(err[1]);
    job.out = out[0];
    job.err = err[0];
    if (result != 0) throw Failure(std::string("cannot start a process: ") + std::strerror(result));
}

// Reads what is there; true at the end.
bool Drain(int& descriptor, std::string& text) {
    char bytes[4096];
    const ssize_t got = read(descriptor, bytes, sizeof bytes);
    if (got > 0) text.append(bytes, static_cast<size_t>(got));
    if (got > 0 || (got < 0 && errno == EINTR)) return false;
    close(descriptor);
    descriptor = -1;
    return true;
}

// Waits until one of the jobs has ended, and gives it.
Job& WaitForOne(const std::vector<Job*>& running) {
    for (;;) {
        std::vector<pollfd> waits;
        for (const Job* job : running) {
            waits.push_back({job->out, POLLIN, 0});
            waits.push_back({job->err, POLLIN, 0});
        }
        if (poll(waits.data(), waits.size(), -1) < 0) continue;
        for (size_t i = 0; i < running.size(); ++i) {
            Job& job = *running[i];
            if (waits[2 * i].revents != 0) Drain(job.out, job.out_text);
            if (waits[2 * i + 1].revents != 0) Drain(job.err, job.err_text);
            if (job.out >= 0 || job.err >= 0) continue;
            int status = 0;
            while (waitpid(job.process, &status, 0) < 0 && errno == EINTR) {
            }
            job.ok = WIFEXITED(status) && WEXITSTATUS(status) == kDone;
            if (!job.ok && job.err_text.empty()) job.err_text = "muxora: ended by a signal\n";
            return job;
        }
    }
}

std::vector<Job> MakeJobs(const PackArguments& arguments, const Format& format) {
    std::vector<Job> jobs;
    std::set<std::string> taken;
    for (const std::string& input : arguments.input.paths) {
        Job job;
        job.input = input;
        job.output = (fs::path(arguments.output) / fs::path(input).stem()).string() + "." + ExtensionOf(format);
        if (!taken.insert(job.output).second) {
            throw WrongUsage("two of the inputs would both become " + job.output + "; pack them into two folders");
        }
        jobs.push_back(std::move(job));
    }
    return jobs;
}

// The error line without the program's name, from JSON where it is that.
std::string ErrorOf(const Job& job) {
    const Json json = Json::parse(job.err_text, nullptr, false);
    if (json.is_object() && json.contains("error")) return json["error"].get<std::string>();
    std::string text = job.err_text.rfind("muxora: ", 0) == 0 ? job.err_text.substr(8) : job.err_text;
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

void Report(const PackArguments& arguments, const std::vector<Job>& jobs, double seconds) {
    uint64_t bytes = 0;
    size_t failed = 0;
    Json files = Json::array();
    std::string failures;
    std::string notes;
    for (const Job& job : jobs) {
        if (job.process < 0) continue;
        Json result = job.ok ? Json::parse(job.out_text, nullptr, false) : Json::object();
        if (result.is_discarded()) result = Json::object();
        result["input"] = job.input;
        result["ok"] = job.ok;
        if (!job.ok) {
            ++failed;
            result["error"] = ErrorOf(job);
            failures += "failed " + job.input + ": " + ErrorOf(job) + "\n";
        }
        bytes += result.value("bytes", uint64_t{0});
        for (const Json& note : result.value("notes", Json::array()))
            notes += "note " + job.input + ": " + note.get<std::string>() + "\n";
        files.push_back(std::move(result));
    }
    const size_t done = files.size() - failed;
    if (arguments.json) {
        const Json json{{"done", done},   {"failed", failed},   {"not_begun", jobs.size() - files.size()},
                        {"bytes", bytes}, {"seconds", seconds}, {"files", files}};
        std::printf("%s\n", JsonLine(json).c_str());
    } else if (!arguments.quiet) {
        std::printf("%s%s%zu of %zu files packed into %s, %s in %.2f s\n", failures.c_str(), notes.c_str(), done,
                    jobs.size(), arguments.output.c_str(), SizeText(bytes).c_str(), seconds);
    } else {
        std::fputs(failures.c_str(), stderr);
    }
    std::fflush(stdout);
    if (failed != 0) {
        throw Failure(std::to_string(failed) + " of " + std::to_string(jobs.size()) + " files failed");
    }
}

}  // namespace

void PackBatch(const PackArguments& arguments) {
    if (arguments.format_key.empty()) throw WrongUsage("--jobs needs the format by name: -f KEY");
    const Format* format = FormatByKey(arguments.format_key);
    if (format == nullptr) {
        throw WrongUsage("there is no format '" + arguments.format_key + "'; choose one of: " + FormatKeys());
    }
    if (arguments.backup > 0 || arguments.realtime || !arguments.segment.empty() || !arguments.key.key.empty()) {
        throw WrongUsage("--jobs goes without --backup, --realtime, --segment and --key (use --key-file)");
    }
    if (!fs::is_directory(arguments.output)) {
        throw WrongUsage("--jobs writes into a folder, and " + arguments.output + " is none; make it first");
    }
    CatchInterrupts();
    std::vector<Job> jobs = MakeJobs(arguments, *format);
    ProgressLine progress(arguments.quiet || arguments.json);
    std::vector<Job*> running;
    size_t next = 0;
    size_t ended = 0;
    while ((next < jobs.size() && !Interrupted()) || !running.empty()) {
        while (running.size() < arguments.jobs && next < jobs.size() && !Interrupted()) {
            Start(arguments, jobs[next]);
            running.push_back(&jobs[next++]);
        }
        if (running.empty()) break;
        Job& job = WaitForOne(running);
        running.erase(std::find(running.begin(), running.end(), &job));
        progress.ShowCount(++ended, jobs.size());
    }
    const double seconds = progress.Seconds();
    Report(arguments, jobs, seconds);
}

}  // namespace Orvane::Muxora::Tools
