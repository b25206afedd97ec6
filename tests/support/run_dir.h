// run_dir.h - a private run directory for one test: created empty, named to the library through
// ATAPI_RUN_DIR, removed with everything in it when the test is done.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace atapi_test {

class RunDir {
public:
    RunDir() {
        char tmpl[] = "/tmp/atapi-test-XXXXXX";
        if (mkdtemp(tmpl) != nullptr) path_ = tmpl;
        point_here();
    }
    ~RunDir() {
        std::error_code ec;
        if (!path_.empty()) std::filesystem::remove_all(path_, ec);
    }
    RunDir(const RunDir&) = delete;
    RunDir& operator=(const RunDir&) = delete;

    // Makes ATAPI_RUN_DIR name this directory again (another one may have replaced it).
    void point_here() const { setenv("ATAPI_RUN_DIR", path_.c_str(), 1); }
    bool ok() const { return !path_.empty(); }
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& rel) const { return path_ + "/" + rel; }

private:
    std::string path_;
};

}  // namespace atapi_test
