#include <string>
#include <thread>

#include "compare.h"

namespace compare {
namespace {

// The text with its {a} and {b} replaced.
std::string text(std::string sql, int a, int b = 0) {
  for (const auto &[mark, number] : {std::pair("{a}", a), std::pair("{b}", b)}) {
    const size_t at = sql.find(mark);
    if (at != std::string::npos) sql.replace(at, 3, std::to_string(number));
  }
  return sql;
}

// The n-th of a row of numbers below limit that seems random.
int scattered(int n, int limit) {
  return static_cast<int>((static_cast<uint32_t>(n) * 2654435761u >> 1) % static_cast<uint32_t>(limit));
}

void create_indexed(Engine &engine, const Table &table, const char *second_column) {
  const std::string name = table.name;
  engine.execute(create_table(table));
  engine.execute("CREATE UNIQUE INDEX " + name + "_id ON " + name + " (id)");
  engine.execute("CREATE INDEX " + name + "_2 ON " + name + " (" + second_column + ")");
}

void load(Engine &engine, const Table &table, int first, int count, const Run &run) {
  engine.begin();
  for (int i = first; i < first + count; ++i) engine.insert(table, run.row(i));
  engine.commit();
}

void load_records(Engine &, Run &run) {
  const auto engine = run.fresh(Place::file);
  create_indexed(*engine, orders, "customer");
  run.time([&] { load(*engine, orders, 0, run.rows, run); });
  engine->query("SELECT COUNT(*), SUM(amount) FROM t", "id", run.answer);
}

void load_text(Engine &, Run &run) {
  const auto engine = run.fresh(Place::file);
  create_indexed(*engine, orders, "customer");
  run.time([&] {
    engine->begin();
    for (int i = 0; i < run.rows; ++i) engine->execute(engine->insert_text(orders, run.row(i)));
    engine->commit();
  });
  engine->query("SELECT COUNT(*), SUM(amount) FROM t", "id", run.answer);
}

void commits(Engine &engine, Run &run, int count) {
  run.time([&] {
    for (int i = 0; i < count; ++i) engine.insert(orders, run.row(run.rows + i));
  });
  engine.query(text("SELECT COUNT(*), SUM(amount) FROM t WHERE id >= {a}", run.rows), "id", run.answer);
  engine.execute(text("DELETE FROM t WHERE id >= {a}", run.rows));
}

void commits_without_sync(Engine &engine, Run &run) {
  engine.set_sync(Sync::off);
  commits(engine, run, 2000);
  engine.set_sync(Sync::on);
}

void point_reads(Engine &engine, Run &run, int count) {
  run.time([&] {
    for (int i = 0; i < count; ++i) engine.read(orders, scattered(i, run.rows), run.answer);
  });
}

void point_reads_in_transaction(Engine &engine, Run &run) {
  engine.begin();
  point_reads(engine, run, 50000);
  engine.commit();
}

// count queries of one text each, with {a} a scattered number and {b} that number plus span.
void queries(Engine &engine, Run &run, int count, const char *format, const char *types, int limit,
             int span = 0) {
  run.time([&] {
    for (int i = 0; i < count; ++i) {
      const int number = scattered(i, limit);
      engine.query(text(format, number, number + span), types, run.answer);
    }
  });
}

void query(Engine &engine, Run &run, const std::string &sql, const char *types) {
  run.time([&] { engine.query(sql, types, run.answer); });
}

void ordered_query(Engine &engine, Run &run, const char *sql, const char *types) {
  run.answer.ordered();
  query(engine, run, sql, types);
}

// One statement for every tenth id, all in one transaction.
void change_tenth(Engine &engine, Run &run, const char *format) {
  run.time([&] {
    engine.begin();
    for (int id = run.round % 10; id < run.rows; id += 10) engine.execute(text(format, id, run.round));
    engine.commit();
  });
  engine.query("SELECT COUNT(*), SUM(amount) FROM t", "id", run.answer);
}

void delete_tenth(Engine &engine, Run &run) {
  change_tenth(engine, run, "DELETE FROM t WHERE id = {a}");
  engine.begin();
  for (int id = run.round % 10; id < run.rows; id += 10) engine.insert(orders, run.row(id));
  engine.commit();
}

void create_index(Engine &engine, Run &run) {
  run.time([&] { engine.execute("CREATE INDEX t_name ON t (name)"); });
  engine.query("SELECT id FROM t WHERE name >= 'f'", "i", run.answer);
  engine.execute("DROP INDEX t_name");
}

void open_read_close(Engine &engine, Run &run) {
  engine.close();
  run.time([&] {
    for (int i = 0; i < 50; ++i) {
      engine.open();
      engine.read(orders, scattered(i, run.rows), run.answer);
      engine.close();
    }
  });
  engine.open();
}

constexpr int blob_count = 200, blob_size = 65536;

std::unique_ptr<Engine> write_blobs(Run &run, const auto &timed) {
  auto engine = run.fresh(Place::file);
  engine->execute(std::string("CREATE TABLE b (id int NOT NULL, data ") + engine->blob_type() + ")");
  engine->execute("CREATE UNIQUE INDEX b_id ON b (id)");
  std::string bytes(blob_size, '\0');
  for (int i = 0; i < blob_size; ++i) bytes[static_cast<size_t>(i)] = static_cast<char>(i * 7 + i / 256);
  timed([&] {
    engine->begin();
    for (int id = 0; id < blob_count; ++id) {
      bytes[0] = static_cast<char>(id);
      engine->insert_blob(id, bytes);
    }
    engine->commit();
  });
  return engine;
}

void read_blobs(Engine &engine, Run &run) {
  for (int id = 0; id < blob_count; ++id) engine.read_blob(scattered(id, blob_count), run.answer);
}

void blobs_write(Engine &, Run &run) {
  const auto engine = write_blobs(run, [&](const auto &work) { run.time(work); });
  read_blobs(*engine, run);
}

void blobs_read(Engine &, Run &run) {
  const auto engine = write_blobs(run, [](const auto &work) { work(); });
  run.time([&] { read_blobs(*engine, run); });
}

void memory(Engine &, Run &run) {
  const auto engine = run.fresh(Place::memory);
  create_indexed(*engine, orders, "customer");
  run.time([&] {
    load(*engine, orders, 0, run.rows, run);
    for (int i = 0; i < run.rows; ++i) engine->read(orders, scattered(i, run.rows), run.answer);
  });
}

// A fixed amount of work: each reader its reads, the writer its commits. It is over when all have ended.
void readers_beside_writer(Engine &engine, Run &run) {
  Answer answers[2];
  const auto read = [&](Answer &answer) {
    const auto own = engine.for_thread();
    for (int i = 0; i < 20000; ++i) own->read(words, scattered(i, run.rows), answer);
  };
  run.time([&] {
    std::thread first(read, std::ref(answers[0])), second(read, std::ref(answers[1]));
    for (int i = 0; i < 50; ++i) engine.insert(orders, run.row(run.rows + i));
    first.join();
    second.join();
  });
  if (!(answers[0] == answers[1])) give_up("two readers", "read different rows");
  run.answer = answers[0];
  engine.execute(text("DELETE FROM t WHERE id >= {a}", run.rows));
}

constexpr int narrow_rows = 4000000, narrow_commit = 100000;

std::unique_ptr<Engine> load_narrow(Run &run, const auto &timed) {
  auto engine = run.fresh(Place::file);
  create_indexed(*engine, narrow, "customer");
  run.customers = narrow_rows / 100;
  timed([&] {
    for (int i = 0; i < narrow_rows; i += narrow_commit) load(*engine, narrow, i, narrow_commit, run);
  });
  return engine;
}

void narrow_load(Engine &, Run &run) {
  const auto engine = load_narrow(run, [&](const auto &work) { run.time(work); });
  engine->query("SELECT COUNT(*), SUM(amount) FROM w", "id", run.answer);
}

void narrow_read(Engine &, Run &run) {
  const auto engine = load_narrow(run, [](const auto &work) { work(); });
  run.time([&] {
    for (int i = 0; i < 100000; ++i) engine->read(narrow, scattered(i, narrow_rows), run.answer);
  });
}

}  // namespace

void load_base(Engine &engine, const Run &run) {
  create_indexed(engine, orders, "customer");
  create_indexed(engine, words, "name");
  engine.execute(create_table(some));
  load(engine, orders, 0, run.rows, run);
  load(engine, words, 0, run.rows, run);
  engine.begin();
  for (int i = 0; i < 200; ++i) engine.execute(engine.insert_text(some, run.row(i)));
  engine.commit();
}

void read_everything(Engine &engine, Answer &answer) {
  engine.query("SELECT * FROM t", "iidtit", answer);
  engine.query("SELECT * FROM d", "iidt", answer);
  engine.query("SELECT * FROM s", "ii", answer);
}

#define RUN(...) [](Engine &engine, Run &run) { __VA_ARGS__; }

const std::vector<Workload> workloads = {
    {"load, records / prepared", 1.5, 1.5, Workload::always, load_records},
    {"load as SQL text", 1.5, 1.5, Workload::always, load_text},
    {"300 durable single-row commits", 1.6, 0.35, Workload::always, RUN(commits(engine, run, 300))},
    {"2,000 single-row commits without sync", 0, 0, Workload::always, commits_without_sync},
    {"point read by id, each for itself", 1.8, 0.8, Workload::always, RUN(point_reads(engine, run, 20000))},
    {"point read inside one transaction", 3, 3, Workload::always, point_reads_in_transaction},
    {"point read as SQL text", 2, 1.5, Workload::always,
     RUN(queries(engine, run, 20000, "SELECT * FROM t WHERE id = {a}", "iidtit", run.rows))},
    {"range of 1,000 rows", 2, 2, Workload::always,
     RUN(queries(engine, run, 50, "SELECT * FROM t WHERE id BETWEEN {a} AND {b}", "iidtit", run.rows - 1000,
                 999))},
    {"one customer of 100 rows", 2, 2, Workload::always,
     RUN(queries(engine, run, 200, "SELECT * FROM t WHERE customer = {a}", "iidtit", run.customers))},
    {"scan with a filter", 3, 3, Workload::always,
     RUN(query(engine, run, "SELECT id, name FROM t WHERE amount > 900 AND since < 100", "it"))},
    {"LIKE '%ff%'", 2, 2, Workload::always,
     RUN(query(engine, run, "SELECT id, name FROM t WHERE name LIKE '%ff%'", "it"))},
    {"COUNT, SUM, AVG, MAX", 2.5, 2.5, Workload::always,
     RUN(query(engine, run, "SELECT COUNT(*), SUM(amount), AVG(amount), MAX(since) FROM t", "iddi"))},
    {"ORDER BY name", 1.2, 1.2, Workload::always,
     RUN(ordered_query(engine, run, "SELECT id, name FROM t ORDER BY name", "it"))},
    {"ORDER BY amount DESC, id", 1.5, 1.5, Workload::always,
     RUN(ordered_query(engine, run, "SELECT id, amount FROM t ORDER BY amount DESC, id", "id"))},
    {"DISTINCT customer", 1, 1, Workload::always,
     RUN(query(engine, run, "SELECT DISTINCT customer FROM t", "i"))},
    {"GROUP BY customer", 0, 0, Workload::always,
     RUN(query(engine, run, "SELECT customer, COUNT(*), SUM(amount) FROM t GROUP BY customer", "iid"))},
    {"join of 200 by an indexed column", 1, 1, Workload::always,
     RUN(query(engine, run, "SELECT s.id, t.id FROM s, t WHERE s.customer = t.customer", "ii"))},
    {"IN (subquery)", 0, 0, Workload::always,
     RUN(query(engine, run, "SELECT id FROM t WHERE customer IN (SELECT customer FROM s)", "i"))},
    {"EXISTS (correlated subquery)", 0, 0, Workload::always,
     RUN(query(
         engine, run,
         "SELECT s.id FROM s WHERE EXISTS (SELECT * FROM t WHERE t.customer = s.customer AND t.amount > 990)",
         "i"))},
    {"words LIKE '123%', 20 times", 0, 0, Workload::always,
     RUN(queries(engine, run, 20, "SELECT id, name FROM d WHERE name LIKE '1{b}%'", "it", 89, 10))},
    {"update 10% by id as text", 2, 2, Workload::always,
     RUN(change_tenth(engine, run, "UPDATE t SET amount = since + {b}.25 WHERE id = {a}"))},
    {"delete 10% by id as text", 1.5, 1.5, Workload::always, delete_tenth},
    {"index on existing rows", 1.2, 1.2, Workload::always, create_index},
    {"open, read, close, 50 times", 1.5, 1.5, Workload::always, open_read_close},
    {"200 blobs of 64 KiB, write", 0, 0, Workload::always, blobs_write},
    {"200 blobs of 64 KiB, read", 0, 0, Workload::always, blobs_read},
    {"memory database: load, read each row", 0, 0, Workload::always, memory},
    {"2 threads of 20,000 reads beside 50 commits", 0, 0, Workload::always, readers_beside_writer},
    {"4,000,000 narrow rows: load", 1.3, 1.3, Workload::large_only, narrow_load},
    {"4,000,000 narrow rows: 100,000 point reads", 1.5, 1.5, Workload::large_only, narrow_read},
};

}  // namespace compare
