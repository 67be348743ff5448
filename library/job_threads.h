// Threads of jobs that run side by side in one process (`vqfe extract --jobs N`, `vqfe work
// --jobs N`). OpenCV's parallel loops cannot share the cores between jobs: the process runs
// one parallel loop at a time, and a loop entered while another thread's loop runs is run
// serially by its caller. So two jobs whose loops each spread over both cores of a 2-core
// machine run three busy threads on two cores, and each job's loops pay for splitting and
// joining. With several jobs every job runs its loops on its own thread and the jobs fill
// the cores; the images of one job are independent of the other's, so that scales.
#pragma once

namespace vqfe {

// One OpenCV thread per job when jobs > 1; OpenCV's own setting otherwise. Process-wide;
// call before the jobs' frameworks are initialised, so that a framework configuration
// naming its own thread count ("threads") still has the last word.
void setThreadsForJobs(int jobs);

}  // namespace vqfe
