// Runs a command and prints its wall time and peak resident memory (from wait4):
//   obj_bench_measure CMD ARGS...   ->   "<wall seconds> <peak KiB> <cpu seconds>" on standard error
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    auto t0 = std::chrono::steady_clock::now();
    pid_t pid = fork();
    if (pid == 0) {
        execvp(argv[1], argv + 1);
        _exit(127);
    }
    int status = 0;
    rusage ru{};
    if (pid < 0 || wait4(pid, &status, 0, &ru) < 0) return 2;
    double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    double cpu = double(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) + double(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
    std::fprintf(stderr, "%.3f %ld %.3f\n", s, ru.ru_maxrss, cpu);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
