#include "run_directory.h"

#include <cstdlib>
#include <string>
#include <system_error>

#include "failure.h"

namespace demo {

RunDirectory::RunDirectory(const std::filesystem::path& keep) : temporary_(keep.empty()) {
    std::error_code error;
    if (temporary_) {
        const std::filesystem::path parent = std::filesystem::temp_directory_path(error);
        std::string name = (parent / "cuewright-demo-XXXXXX").string();
        if (error || mkdtemp(name.data()) == nullptr) {
            throw Failure("cannot make a temporary directory in \"" + parent.string() +
                          "\"; name another place with the environment variable TMPDIR");
        }
        path_ = name;
        return;
    }
    path_ = std::filesystem::absolute(keep, error);
    std::filesystem::create_directories(path_, error);
    if (error) {
        throw Failure("cannot make the directory \"" + keep.string() + "\": " + error.message());
    }
    if (!std::filesystem::is_empty(path_, error)) {
        throw Failure("\"" + keep.string() + "\" is not empty; name a new directory with --keep");
    }
}

RunDirectory::~RunDirectory() {
    if (temporary_) {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
}

}  // namespace demo
