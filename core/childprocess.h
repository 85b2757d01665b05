// Running an external program for a conversion, without a shell: fork and
// exec with an argument vector, a chosen directory, standard input from a
// file (or /dev/null) and standard output into a file.  The child gets a
// fixed environment, no descriptor of the parent beyond the three standard
// ones, default signal handling, and, where the kernel offers Landlock, a
// file system it may read only beneath the paths given and write only
// beneath the paths given (already open descriptors, such as its standard
// output, stay usable).
#pragma once

#include <string>
#include <vector>

namespace dt {

struct ChildRun {
    std::vector<std::string> argv;  // argv[0] is the program file (a path)
    std::vector<std::string> env;   // the complete environment, "NAME=value"
    std::string dir;                // the working directory; "" keeps the caller's
    std::string stdin_path;         // "" reads /dev/null
    std::string stdout_path;        // created (or truncated); "" keeps the caller's
    std::string stderr_path;        // created (or truncated); "" keeps the caller's
    long cpu_seconds = 0;           // RLIMIT_CPU of the child; 0: unlimited
    long long max_file_bytes = 0;   // RLIMIT_FSIZE (largest file it writes); 0: unlimited
    bool sandbox = true;            // restrict the file system where possible
    std::vector<std::string> readable;  // read and execute beneath these
    std::vector<std::string> writable;  // read, write, create and remove beneath these
};

struct ChildResult {
    bool started = false;  // the program was executed
    int error = 0;         // errno of what failed when not started
    std::string failed;    // what failed when not started ("exec", "open output", ...)
    int status = -1;       // exit status; 128 + the signal's number when a signal ended it
    bool sandboxed = false;
    bool output_full = false;  // it failed with its output file at max_file_bytes
};

// Runs the program and waits for it, calling PollInterrupts() while it
// runs; an exception from the poll kills the child (SIGKILL), reaps it and
// propagates.  The output file is removed again when it did not exist
// before and the program could not be started, failed (non-zero status) or
// was interrupted.
ChildResult RunChild(const ChildRun &run);

// Whether the kernel offers the file-system sandbox (Landlock).
bool SandboxAvailable();

}  // namespace dt
