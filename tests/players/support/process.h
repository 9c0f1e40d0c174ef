// Runs programs without a shell.
#pragma once

#include <string>
#include <vector>

namespace test {

struct RunResult {
    int exit_code = -1;  // 128 and the signal's number when a signal ended it
    std::string out;
    std::string err;
    long peak_kib = 0;  // most memory that the process held at a time

    bool Ok() const { return exit_code == 0; }
};

// Runs `argv` (argv[0] is looked up in PATH) to its end, with an empty standard input. A program that cannot be
// started gives 127; one that runs longer than the limit is killed and gives 128 + 9.
RunResult Run(const std::vector<std::string>& argv, int limit_seconds = 120);

// A program that runs while the test goes on, its output thrown away. It is killed when the object goes.
class Background {
  public:
    explicit Background(const std::vector<std::string>& argv);
    ~Background();
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    void Signal(int number) const;
    // Waits for the end; the exit code as in RunResult.
    int Wait();

  private:
    int pid_ = -1;
};

// Is there such a program in PATH?
bool HaveProgram(const std::string& name);

}  // namespace test
