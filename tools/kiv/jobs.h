// Files checked side by side: check and lint run the loads of their files
// on several threads and report them in the order they were given.
#ifndef KIV_TOOL_JOBS_H
#define KIV_TOOL_JOBS_H

#include <cstddef>
#include <functional>

namespace kivtool
{

// The number of threads "-j 0" (the default) means: one per core.
unsigned default_jobs();

// Runs work(i) for every i in [0, n) on up to `jobs` threads (each with a
// log level of its own, so one script's log_level does not change what
// another load prints), and done(i) on the calling thread, in the order of
// i, as soon as work(0 .. i) are finished.  work must not throw.
void run_jobs(size_t n, unsigned jobs, const std::function<void(size_t)> &work,
              const std::function<void(size_t)> &done);

} // namespace kivtool

#endif
