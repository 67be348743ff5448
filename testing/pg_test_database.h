// A database of its own for one test on the PostgreSQL server named by VQFE_TEST_PG_URI
// (scripts/test starts a throw-away one with scripts/pg_cluster), dropped afterwards.
// Without the variable, available() is false and the test skips, saying why.
#pragma once

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "cache/pg_connection.h"

namespace VQFeature {

class PgTestDatabase {
public:
    static constexpr const char* kSkipReason =
        "VQFE_TEST_PG_URI is not set: no PostgreSQL server to test against (scripts/test starts one)";

    PgTestDatabase() {
        const char* base = std::getenv("VQFE_TEST_PG_URI");
        if (base == nullptr || *base == '\0') return;
        static std::atomic<int> serial{0};
        name_ = "vqfe_test_" + std::to_string(getpid()) + "_" + std::to_string(serial++);
        admin_ = std::make_unique<PgConnection>(base);
        admin_->command("DROP DATABASE IF EXISTS " + name_);
        admin_->command("CREATE DATABASE " + name_);
        uri_ = std::string(base) + (std::strchr(base, '?') ? "&" : "?") + "dbname=" + name_;
    }
    ~PgTestDatabase() {
        if (admin_) admin_->command("DROP DATABASE IF EXISTS " + name_ + " WITH (FORCE)");
    }
    PgTestDatabase(const PgTestDatabase&) = delete;
    PgTestDatabase& operator=(const PgTestDatabase&) = delete;

    bool available() const { return admin_ != nullptr; }
    const std::string& uri() const { return uri_; }
    const std::string& name() const { return name_; }
    // A connection to the server's maintenance database, for what a test does to others.
    PgConnection& admin() { return *admin_; }

private:
    std::unique_ptr<PgConnection> admin_;
    std::string name_;
    std::string uri_;
};

}  // namespace VQFeature
