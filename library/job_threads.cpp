#include "library/job_threads.h"

#include <opencv2/core/utility.hpp>

namespace vqfe {

void setThreadsForJobs(int jobs) {
    if (jobs > 1) cv::setNumThreads(1);
}

}  // namespace vqfe
