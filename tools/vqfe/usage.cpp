#include "tools/vqfe/usage.h"

namespace vqfe {

std::string synopsis(const std::string& usage) {
    const size_t blank = usage.find("\n\n");
    return blank == std::string::npos ? usage : usage.substr(0, blank + 1);
}

int usageError(const std::string& message, const std::string& usage, std::ostream& err) {
    // "usage: vqfe people --store ..." names the command as its third word.
    std::string command = "vqfe";
    const std::string prefix = "usage: vqfe ";
    if (usage.compare(0, prefix.size(), prefix) == 0) {
        const size_t end = usage.find_first_of(" \n", prefix.size());
        const std::string word = usage.substr(prefix.size(), end - prefix.size());
        if (!word.empty() && word[0] != '<') command += " " + word;
    }
    err << command << ": " << message << "\n"
        << synopsis(usage) << "Run '" << command << " --help' for the options.\n";
    return 2;
}

}  // namespace vqfe
