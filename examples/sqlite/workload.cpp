#include "workload.h"

#include <array>
#include <memory>
#include <vyx/thread.h>
#include <vyx/time.h>

namespace sqlite_vyx {

namespace {

constexpr int kThreads = 4;
constexpr int64_t kAccounts = 16;
constexpr int64_t kStart = 1000;        // in each account
constexpr int64_t kBatch = 1000;        // rows in a transaction
constexpr int64_t kRowsATransfer = 100; // as many items are inserted for each
constexpr int kMostPatience = 60000;    // milliseconds that a connection waits for the others

struct Statement {
    sqlite3_stmt *handle = nullptr;
    ~Statement() { (void)sqlite3_finalize(handle); }
};

void AddByte(uint64_t &sum, uint8_t byte) {
    sum = (sum ^ byte) * 0x100000001B3u;
} // FNV-1a

void AddColumn(sqlite3_stmt *row, int column, uint64_t &sum) {
    const auto *text = sqlite3_column_text(row, column);
    const int length = sqlite3_column_bytes(row, column);
    AddByte(sum, static_cast<uint8_t>(sqlite3_column_type(row, column)));
    for (int i = 0; i < length; i++)
        AddByte(sum, text[i]);
}

void CheckBalance(Database &database) {
    if (database.Number("SELECT sum(value) FROM account") != kAccounts * kStart)
        throw Failure("a transfer is torn");
}

// One of the threads: each takes transfers of its own between the accounts.
struct Client {
    Database *database;
    int64_t first;
    int64_t transfers;
    bool transactions; // a transaction for each transfer, which a connection can do that is nobody else's
    std::string failure;

    void Run();
    static void *Start(void *self);
};

void Client::Run() {
    for (int64_t i = first; i < first + transfers; i++) {
        const int64_t from = i % kAccounts + 1;
        const int64_t to = i * 7 % kAccounts + 1;
        if (transactions) {
            CheckBalance(*database);
            database->Do("BEGIN IMMEDIATE");
        }
        database->Do("UPDATE account SET value = value - 1 WHERE id = ?", from);
        database->Do("UPDATE account SET value = value + 1 WHERE id = ?", to);
        database->Do("INSERT INTO transfer VALUES (?)", i);
        if (transactions)
            database->Do("COMMIT");
    }
}

void *Client::Start(void *self) {
    auto *client = static_cast<Client *>(self);
    try {
        client->Run();
    } catch (const Failure &failure) {
        client->failure = failure.what();
    }
    return nullptr;
}

// Several threads, with a connection each or with one for all.
void Transfer(const std::string &file, int64_t transfers, bool shared) {
    std::array<std::unique_ptr<Database>, kThreads> databases;
    std::array<Client, kThreads> clients;
    std::array<VYX_Thread, kThreads> threads;
    static int64_t first = 0;
    for (size_t i = 0; i < kThreads; i++) {
        if (i == 0 || !shared)
            databases[i] = std::make_unique<Database>(file);
        clients[i] = {shared ? databases[0].get() : databases[i].get(), first, transfers, !shared, {}};
        first += transfers;
    }
    size_t started = 0;
    while (started < kThreads &&
           threads[started].Create(Client::Start, &clients[started], 0, 0, 0, 0) == VYX_OK)
        started++;
    for (size_t i = 0; i < started; i++)
        (void)threads[i].Wait();
    if (started < kThreads)
        throw Failure("a thread cannot be started");
    for (const Client &client : clients)
        if (!client.failure.empty())
            throw Failure(client.failure);
}

void MakeTables(Database &database) {
    database.Do("PRAGMA journal_mode = DELETE");
    database.Do("PRAGMA cache_size = 200"); // pages: less than the tables, so that the files are used
    database.Do("PRAGMA temp_store = FILE");
    database.Do("PRAGMA synchronous = OFF"); // the disk is not what is compared
    database.Do("CREATE TABLE item (id INTEGER PRIMARY KEY, name TEXT, value INTEGER, body BLOB)");
    database.Do("CREATE INDEX item_name ON item (name)");
    database.Do("CREATE TABLE account (id INTEGER PRIMARY KEY, value INTEGER, page BLOB)");
    database.Do("CREATE TABLE transfer (id INTEGER PRIMARY KEY)");
    for (int64_t i = 1; i <= kAccounts; i++)
        database.Do("INSERT INTO account VALUES (?, " + std::to_string(kStart) + ", zeroblob(3000))", i);
}

void Insert(Database &database, int64_t rows) {
    for (int64_t from = 0; from < rows; from += kBatch) {
        const int64_t to = from + kBatch < rows ? from + kBatch : rows;
        database.Do("BEGIN");
        database.Do("WITH RECURSIVE n(i) AS (SELECT " + std::to_string(from) +
                    " UNION ALL SELECT i + 1 FROM n "
                    "WHERE i + 1 < " +
                    std::to_string(to) +
                    ") INSERT INTO item SELECT i, 'name' || (i * 7919 % 1000003), "
                    "i * i % 977, zeroblob(i % 300) FROM n");
        database.Do("COMMIT");
    }
}

void LookUp(Database &database, int64_t rows, uint64_t &sum) {
    for (int64_t i = 0; i < rows; i += 5)
        database.Sum(
            "SELECT id, value FROM item WHERE name = 'name" + std::to_string(i * 7919 % 1000003) + "'", sum);
}

void Change(Database &database) {
    database.Do("BEGIN");
    database.Do("UPDATE item SET value = value + 1, name = name || 'x' WHERE id % 7 = 0");
    database.Do("DELETE FROM item WHERE id % 11 = 0");
    database.Do("COMMIT");
    database.Do("BEGIN");
    database.Do("DELETE FROM item");
    database.Do("ROLLBACK");
}

void Scan(Database &database, uint64_t &sum) {
    database.Sum("SELECT value, count(*), sum(length(body)) FROM item GROUP BY value ORDER BY 2, 1", sum);
    database.Sum("SELECT a.id FROM item a JOIN item b ON b.id = a.value ORDER BY b.name, a.name LIMIT 2000",
                 sum);
}

// What each of three connections may do while the others read and write: the codes count as a result.
void Locks(const std::string &file, uint64_t &sum) {
    Database reader(file);
    Database writer(file);
    Database late(file);
    for (Database *database : {&reader, &writer, &late})
        database->SetPatience(0);
    const auto attempt = [&sum](Database &database, const char *sql) {
        AddByte(sum, static_cast<uint8_t>(database.Try(sql)));
    };
    const char *const kRead = "SELECT value FROM account WHERE id = 1";
    attempt(reader, "BEGIN");
    attempt(reader, kRead);
    attempt(writer, "BEGIN IMMEDIATE");
    attempt(late, kRead);
    attempt(late, "BEGIN IMMEDIATE"); // busy: there is a writer
    attempt(writer, "UPDATE account SET value = value + 5 WHERE id = 1");
    attempt(writer, "COMMIT"); // busy: somebody reads
    attempt(late, kRead);      // busy: the writer waits
    attempt(reader, "COMMIT");
    attempt(writer, "COMMIT");
    attempt(late, "UPDATE account SET value = value - 5 WHERE id = 1");
    attempt(writer, "BEGIN EXCLUSIVE");
    attempt(late, kRead); // busy: nobody else may read
    attempt(writer, "ROLLBACK");
    late.Sum(kRead, sum);
}

void Flush(Database &database) {
    database.Do("PRAGMA synchronous = FULL");
    for (const char *change : {"+ 1", "- 1"})
        for (int64_t i = 1; i <= 3; i++)
            database.Do(std::string("UPDATE account SET value = value ") + change + " WHERE id = ?", i);
    database.Do("PRAGMA synchronous = OFF");
}

void Check(Database &database, uint64_t &sum) {
    database.Do("VACUUM");
    CheckBalance(database);
    database.Sum("PRAGMA integrity_check", sum);
    for (const char *table : {"item", "account", "transfer"})
        database.Sum(std::string("SELECT * FROM ") + table + " ORDER BY id", sum);
}

} // namespace

Database::Database(const std::string &file) {
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
    if (sqlite3_open_v2(file.c_str(), &m_handle, kFlags, nullptr) != SQLITE_OK) {
        const std::string why = sqlite3_errmsg(m_handle);
        (void)sqlite3_close(m_handle);
        throw Failure(file + ": " + why);
    }
    SetPatience(kMostPatience);
    Do("PRAGMA synchronous = OFF");
}

Database::~Database() {
    (void)sqlite3_close(m_handle);
}

void Database::Fail(const std::string &what) const {
    throw Failure(what + ": " + sqlite3_errmsg(m_handle));
}

void Database::SetPatience(int milliseconds) {
    (void)sqlite3_busy_timeout(m_handle, milliseconds);
}

int Database::Try(const std::string &sql) {
    return sqlite3_exec(m_handle, sql.c_str(), nullptr, nullptr, nullptr);
}

void Database::Do(const std::string &sql) {
    if (Try(sql) != SQLITE_OK)
        Fail(sql);
}

void Database::Do(const std::string &sql, int64_t number) {
    Statement statement;
    if (sqlite3_prepare_v2(m_handle, sql.c_str(), -1, &statement.handle, nullptr) != SQLITE_OK ||
        sqlite3_bind_int64(statement.handle, 1, number) != SQLITE_OK ||
        sqlite3_step(statement.handle) != SQLITE_DONE)
        Fail(sql);
}

void Database::Sum(const std::string &sql, uint64_t &sum) {
    Statement statement;
    if (sqlite3_prepare_v2(m_handle, sql.c_str(), -1, &statement.handle, nullptr) != SQLITE_OK)
        Fail(sql);
    int result = SQLITE_ROW;
    while ((result = sqlite3_step(statement.handle)) == SQLITE_ROW)
        for (int i = 0; i < sqlite3_column_count(statement.handle); i++)
            AddColumn(statement.handle, i, sum);
    if (result != SQLITE_DONE)
        Fail(sql);
}

int64_t Database::Number(const std::string &sql) {
    Statement statement;
    if (sqlite3_prepare_v2(m_handle, sql.c_str(), -1, &statement.handle, nullptr) != SQLITE_OK ||
        sqlite3_step(statement.handle) != SQLITE_ROW)
        Fail(sql);
    return sqlite3_column_int64(statement.handle, 0);
}

uint64_t Work(const std::string &file, int64_t rows,
              const std::function<void(const char *part, int64_t microseconds)> &tell) {
    uint64_t sum = 0xCBF29CE484222325u;
    Database database(file);
    MakeTables(database);
    const auto timed = [&tell](const char *part, const auto &work) {
        const VYX_TIME_T start = VYX_TimeNow();
        work();
        tell(part, VYX_TimeNow() - start);
    };
    timed("insert", [&] { Insert(database, rows); });
    timed("look up", [&] { LookUp(database, rows, sum); });
    timed("change", [&] { Change(database); });
    timed("scan", [&] { Scan(database, sum); });
    timed("connections", [&] { Transfer(file, rows / kRowsATransfer, false); });
    timed("one for all", [&] { Transfer(file, rows / kRowsATransfer, true); });
    timed("locks", [&] { Locks(file, sum); });
    timed("flush", [&] { Flush(database); });
    timed("check", [&] { Check(database, sum); });
    return sum;
}

} // namespace sqlite_vyx
