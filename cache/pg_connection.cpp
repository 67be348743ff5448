#include "cache/pg_connection.h"

#include <arpa/inet.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <stdexcept>
#include <thread>

namespace VQFeature {
namespace {

// Pauses between attempts after a lost connection: 50 ms doubling up to 2 s, 11 tries,
// about 15 s in all; a server restart takes well under that.
constexpr int kAttempts = 11;
constexpr std::chrono::milliseconds kFirstPause{50};
constexpr std::chrono::milliseconds kLongestPause{2000};

// The connection is gone (or the server is going away): worth a new connection.
struct LostConnection : std::runtime_error {
    using std::runtime_error::runtime_error;
};
// The transaction lost a race with another one: worth running again as it is.
struct TransientConflict : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    return text;
}

std::string maskPassword(const std::string& uri) {
    static const std::regex userinfo(R"(^(postgres(?:ql)?://[^:/@?]*:)[^@/?]*@)");
    static const std::regex keyword(R"((password=)[^& ]*)");
    return std::regex_replace(std::regex_replace(uri, userinfo, "$1***@"), keyword, "$1***");
}

void ignoreNotice(void*, const char*) {}

}  // namespace

PgParam PgParam::bytes(const void* data, size_t length) {
    if (data == nullptr) return {};
    return {std::string(static_cast<const char*>(data), length), true};
}

std::string PgRows::bytes(int row, int column) const {
    return std::string(PQgetvalue(result_.get(), row, column), PQgetlength(result_.get(), row, column));
}

int32_t PgRows::int32(int row, int column) const {
    uint32_t value = 0;
    std::memcpy(&value, PQgetvalue(result_.get(), row, column), sizeof value);
    return static_cast<int32_t>(ntohl(value));
}

int64_t PgRows::int64(int row, int column) const {
    unsigned char raw[8];
    std::memcpy(raw, PQgetvalue(result_.get(), row, column), sizeof raw);
    uint64_t value = 0;
    for (unsigned char byte : raw) value = value << 8 | byte;
    return static_cast<int64_t>(value);
}

double PgRows::float8(int row, int column) const {
    const int64_t bits = int64(row, column);
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

long long PgRows::affected() const {
    const char* count = PQcmdTuples(result_.get());
    return *count ? std::atoll(count) : 0;
}

std::string PgConnection::masked(const std::string& uri) { return maskPassword(uri); }

PgConnection::PgConnection(const std::string& uri) : uri_(uri), name_(maskPassword(uri)) {
    try {
        connect();
    } catch (const LostConnection& e) {
        PQfinish(conn_);  // no destructor runs for a constructor that throws
        conn_ = nullptr;
        throw std::runtime_error(e.what());
    }
}

PgConnection::~PgConnection() { PQfinish(conn_); }

void PgConnection::connect() {
    PQfinish(conn_);
    // Keywords before dbname are defaults that the URI may override. A session left idle
    // inside a transaction (its process frozen, its machine cut off) is ended by the
    // server after a minute, so its row locks do not outlive it by much.
    const char* keywords[] = {"connect_timeout", "options", "dbname", nullptr};
    const char* values[] = {"10", "-c idle_in_transaction_session_timeout=60s", uri_.c_str(), nullptr};
    conn_ = PQconnectdbParams(keywords, values, 1);
    if (conn_ == nullptr) throw LostConnection("result store " + name_ + ": out of memory");
    if (PQstatus(conn_) != CONNECTION_OK) {
        throw LostConnection("result store " + name_ + ": " + trimmed(PQerrorMessage(conn_)));
    }
    PQsetNoticeProcessor(conn_, ignoreNotice, nullptr);
    prepareAll();
}

void PgConnection::prepareAll() {
    for (const auto& [name, sql] : statements_) check(PQprepare(conn_, name.c_str(), sql.c_str(), 0, nullptr));
}

void PgConnection::prepare(const std::string& name, const std::string& sql) {
    // Registered after it succeeds, so a reconnect inside run() does not prepare it twice.
    run([&] { check(PQprepare(conn_, name.c_str(), sql.c_str(), 0, nullptr)); });
    statements_.emplace_back(name, sql);
}

void PgConnection::fail(const PGresult* result) {
    std::string message = trimmed(result ? PQresultErrorMessage(result) : PQerrorMessage(conn_));
    if (message.empty()) message = trimmed(PQerrorMessage(conn_));
    const char* state = result ? PQresultErrorField(result, PG_DIAG_SQLSTATE) : nullptr;
    const std::string sqlState = state ? state : "";
    const std::string text = "result store " + name_ + ": " + message;
    // 08: connection exceptions; 57P01-57P03: the server shuts down or starts up.
    if (PQstatus(conn_) == CONNECTION_BAD || sqlState.rfind("08", 0) == 0 || sqlState.rfind("57P0", 0) == 0) {
        throw LostConnection(text);
    }
    if (sqlState == "40001" || sqlState == "40P01") throw TransientConflict(text);
    throw std::runtime_error(text);
}

PgRows PgConnection::check(PGresult* result) {
    const ExecStatusType status = result ? PQresultStatus(result) : PGRES_FATAL_ERROR;
    if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK) return PgRows(result);
    PgRows owner(result);  // cleared on the way out
    fail(result);
}

namespace {

// libpq's parallel arrays of values, lengths and formats over params.
struct ParamArrays {
    explicit ParamArrays(const std::vector<PgParam>& params) {
        for (const auto& param : params) {
            values.push_back(param.value ? param.value->data() : nullptr);
            lengths.push_back(param.value ? static_cast<int>(param.value->size()) : 0);
            formats.push_back(param.binary ? 1 : 0);
        }
    }
    std::vector<const char*> values;
    std::vector<int> lengths;
    std::vector<int> formats;
};

}  // namespace

PgRows PgConnection::execute(const std::string& name, const std::vector<PgParam>& params) {
    ParamArrays arrays(params);
    return check(PQexecPrepared(conn_, name.c_str(), static_cast<int>(params.size()), arrays.values.data(),
                                arrays.lengths.data(), arrays.formats.data(), 1));
}

PgRows PgConnection::query(const std::string& sql, const std::vector<PgParam>& params) {
    ParamArrays arrays(params);
    return check(PQexecParams(conn_, sql.c_str(), static_cast<int>(params.size()), nullptr, arrays.values.data(),
                              arrays.lengths.data(), arrays.formats.data(), 1));
}

PgRows PgConnection::command(const std::string& sql) {
    return check(PQexecParams(conn_, sql.c_str(), 0, nullptr, nullptr, nullptr, nullptr, 1));
}

void PgConnection::run(const std::function<void()>& unit) {
    auto pause = kFirstPause;
    for (int attempt = 1;; ++attempt) {
        try {
            if (PQstatus(conn_) != CONNECTION_OK) connect();
            unit();
            return;
        } catch (const LostConnection& e) {
            if (attempt == kAttempts) {
                throw std::runtime_error(std::string(e.what()) + " (gave up after " + std::to_string(kAttempts) +
                                         " attempts)");
            }
            PQreset(conn_);  // quick path; connect() runs again when this did not help
            if (PQstatus(conn_) == CONNECTION_OK) {
                PQsetNoticeProcessor(conn_, ignoreNotice, nullptr);
                try {
                    prepareAll();
                } catch (const LostConnection&) {
                }
            }
        } catch (const TransientConflict& e) {
            if (attempt == kAttempts) throw std::runtime_error(e.what());
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, kLongestPause);
    }
}

void PgConnection::transact(const std::function<void()>& unit) {
    run([&] {
        command("BEGIN");
        try {
            unit();
            command("COMMIT");
        } catch (...) {
            if (PQstatus(conn_) == CONNECTION_OK) PQclear(PQexec(conn_, "ROLLBACK"));
            throw;
        }
    });
}

}  // namespace VQFeature
