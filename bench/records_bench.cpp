// records-bench [RUNS]: what it costs to look at record files: `zorvctl show` of 30, `query` over 1,000, `export` of
// 10,000, and how that grows with their number. Beside it one script of the sqlite3 shell gives out the same rows, from
// copies that are decoded already, and checks each file as zorvctl does. RUNS, 5 without it, are made of each, of the
// largest a third.
//
//   records-bench --decode FILE    only reads and transforms the files that are named on the lines of FILE
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "collection/collectors.h"
#include "common/files.h"
#include "measure.h"
#include "platform/files.h"
#include "results.h"
#include "store/db_file.h"
#include "store/telemetry_db.h"

namespace fs = std::filesystem;
using namespace zorvalis;

namespace {

constexpr CollectionKind kKinds[] = {CollectionKind::Battery_Power, CollectionKind::SysInfo, CollectionKind::Thermal,
                                     CollectionKind::UserBehavior};
constexpr char kQuestion[] =
    "SELECT device, count(*) AS samples, max(cpu_temp) AS hottest, round(avg(cpu_usage), 2) AS load FROM Thermal "
    "GROUP BY device ORDER BY device";

std::string Bytes(const fs::path& path) {
    std::string bytes(fs::file_size(path), '\0');
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

void Write(const fs::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

void Transform(std::string& bytes) {
    for (char& byte : bytes) {
        byte = static_cast<char>(static_cast<unsigned char>(byte) ^ kDbKey);
    }
}

// Each `from` by `to`, of the same length.
void Replace(std::string& bytes, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = bytes.find(from, at)) != std::string::npos; at += to.size()) {
        bytes.replace(at, to.size(), to);
    }
}

std::string UuidText(std::string digits) {
    for (const std::size_t at : {8, 13, 18, 23}) {
        digits.insert(at, "-");
    }
    return digits;
}

struct Sample {
    char letter;
    std::string plain, guid;  // a full month of this machine, and the identifier in its rows
};

// A file of the class, made by the store, with as many rows in each table as a month may have, half an hour apart.
Sample FullMonth(char letter, DbClass dbClass) {
    Sample sample{letter, "", ""};
    const std::string name = std::string(1, letter) + "_" + getAutoDBFileName() + ".db";
    createAllTables(name, dbClass);
    for (const CollectionKind kind : kKinds) {
        const DataCollector collector(kind);
        SampleRow row = RetrieveData(collector);
        std::string sql;
        for (int i = 0; TakesAnotherRow(dbClass, collector.tableName, i); ++i) {
            setFreqColumn(collector, row, i % 24);
            setLocalTimeColumn(collector, row, std::to_string(1793491200 + i * 1800));
            sql += buildInsert(collector.tableName, collector.rows, row, collector.columnCount);
        }
        insert(name, "BEGIN;" + sql + "COMMIT;");
        sample.guid = row[static_cast<std::size_t>(findColumn(collector, "guid"))];
    }
    sample.plain = Bytes(platform::native_path(kDataFolder + name));
    Transform(sample.plain);
    return sample;
}

// Files of many devices, of each month one of each class: at rest, and the same ones decoded.
class Fleet {
public:
    explicit Fleet(const fs::path& folder) : folder_(folder) {
        fs::remove_all(folder);
        for (const char* one : {"resting", "plain"}) {
            fs::create_directories(folder / one);
        }
        MakeMachine(folder / "machine");
        samples_ = {FullMonth('O', DbClass::periodic), FullMonth('E', DbClass::event),
                    FullMonth('W', DbClass::wmi_event)};
    }

    void GrowTo(std::size_t count) {
        for (std::size_t i = names_.size(); i < count; ++i) {
            const Sample& sample = samples_[i % 3];
            const std::string month = std::to_string(9 + i / 3 % 3);
            char device[40];
            std::snprintf(device, sizeof device, "%032zx", i / 9 + 1);
            const std::string guid = UuidText(device), twoDigits = month.size() < 2 ? "0" + month : month;
            const std::string name = std::string(1, sample.letter) + "_" + device + "_2026" + twoDigits + "_V1-0.db";
            std::string bytes = sample.plain;
            Replace(bytes, sample.guid, guid);
            Replace(bytes, "2026-11-", "2026-" + twoDigits + "-");
            Write(folder_ / "plain" / name, bytes);
            Transform(bytes);
            Write(folder_ / "resting" / name, bytes);
            names_.push_back(name);
            guids_.push_back(guid);
        }
    }

    // A folder with the first files, so that a command needs not thousands of arguments; their paths are in NAME.txt.
    fs::path Some(std::size_t count) {
        GrowTo(count);
        const fs::path some = folder_ / ("first-" + std::to_string(count));
        if (fs::create_directory(some)) {
            std::ofstream list(some.string() + ".txt");
            for (std::size_t i = 0; i < count; ++i) {
                fs::create_hard_link(folder_ / "resting" / names_[i], some / names_[i]);
                list << (some / names_[i]).string() << "\n";
            }
        }
        return some;
    }

    // What a script of the shell says of a file.
    using Statements =
        std::function<std::string(const std::string& path, const std::string& name, const std::string& device)>;
    void WriteScript(std::ofstream& script, std::size_t count, const Statements& statements) const {
        for (std::size_t i = 0; i < count; ++i) {
            script << statements(folder_ / "plain" / names_[i], names_[i], guids_[i]);
        }
    }

    const fs::path& Folder() const { return folder_; }

private:
    fs::path folder_;
    std::vector<Sample> samples_;
    std::vector<std::string> names_, guids_;
};

// Runs a command whose output goes to a file.
Cost RunInto(const fs::path& out, const std::vector<std::string>& command, const std::string& input = "") {
    std::vector<std::string> words = {"/bin/sh", "-c", "out=$1; shift; exec \"$@\" >\"$out\"", "sh", out.string()};
    words.insert(words.end(), command.begin(), command.end());
    return RunProcess(words, input);
}

// Rows, counted by a word that each has once. A file can be larger than what a child may inherit as peak memory.
std::size_t Count(const fs::path& path, const std::string& word) {
    std::ifstream file(path);
    std::size_t count = 0;
    for (std::string line; std::getline(file, line);) {
        for (std::size_t at = 0; (at = line.find(word, at)) != std::string::npos; at += word.size()) {
            ++count;
        }
    }
    return count;
}

struct Work {
    const char* name;
    std::vector<std::string> words;  // of zorvctl, the folder of files behind them
    Fleet::Statements statements;    // of the shell's script, which opens a file by the first of them
    std::string start, end;
    std::function<bool()> same;  // whether both gave out the same rows
};

class RecordsBench {
public:
    RecordsBench(int runs, const fs::path& folder)
        : runs_(runs),
          fleet_(folder),
          ours_(folder / "ours"),
          shells_(folder / "shells"),
          data_(folder / "data"),
          results_("6-records", "Looking at records: zorvctl beside the sqlite3 shell, which reads decoded copies",
                   {"of files", "number", "files/s", "ms", "cpu", "MiB", "shell ms", "cpu", "MiB", "x time",
                    "unchecked", "x time", "decode"}) {}

    void Run() {
        const auto counted = [this](const char* word) {
            return [this, word] { return Count(ours_, word) > 0 && Count(ours_, word) == Count(shells_, word); };
        };
        const Work json{"show --json",           {"show", "--json"}, EachTable("*"), ".mode json\n", "",
                        counted("local_time\":")};
        const Work csv{"show --csv --table Thermal",
                       {"show", "--csv", "--table", "Thermal"},
                       [](const std::string& path, const std::string& name, const std::string& device) {
                           return ".open '" + path + "'\nSELECT '" + name + "', '" + device + "', * FROM Thermal;\n";
                       },
                       ".mode csv\n",
                       "",
                       counted("2026-")};
        // The same question to a database with the columns that it is about.
        const Work query{"query",
                         {"query", "--csv", kQuestion},
                         [](const std::string& path, const std::string&, const std::string& device) {
                             return "ATTACH '" + path + "' AS one;\nINSERT INTO Thermal SELECT '" + device +
                                    "', cpu_temp, cpu_usage FROM one.Thermal; DETACH one;\n";
                         },
                         "CREATE TABLE Thermal (device, cpu_temp, cpu_usage);\n",
                         ".mode csv\n.separator , \"\\n\"\n.headers on\n" + std::string(kQuestion) + ";\n",
                         [this] { return Bytes(ours_) == Bytes(shells_); }};
        const Work data{"export",
                        {"export", data_},
                        EachTable("'NAME' AS file, 'DEVICE' AS device, *, NULL AS other"),
                        ".mode json\n",
                        "",
                        [this] {
                            std::size_t rows = 0;
                            for (const auto& entry : fs::recursive_directory_iterator(data_)) {
                                rows += entry.path().extension() == ".ndjson" ? Count(entry.path(), "\"file\"") : 0;
                            }
                            return rows > 0 && rows == Count(shells_, "\"file\"");
                        }};
        const std::pair<const Work*, std::size_t> asked[] = {{&json, 30}, {&csv, 30}, {&query, 1000}, {&data, 10000}};
        for (const auto& [work, files] : asked) {
            ratios_.push_back(Measure(*work, files));
        }
        for (std::size_t i = 0; i < std::size(asked); ++i) {
            results_.Aim(std::string("zorvctl ") + asked[i].first->name + " of " + std::to_string(asked[i].second) +
                             " files, times the shell's time",
                         ratios_[i], 1.5);
        }
        results_.Text(
            "The shell's one script gives out the same rows, checks each file as zorvctl does, so that a "
            "damaged one is named (unchecked: without that), and has the files decoded already (decode: "
            "what only reading and transforming them takes).");
        Grow(query, data);
    }

private:
    // Rows of every table. NAME and DEVICE stand for the file's.
    static Fleet::Statements EachTable(const std::string& columns) {
        return [columns](const std::string& path, const std::string& name, const std::string& device) {
            std::string text = columns;
            for (const auto& [word, value] : {std::pair("NAME", name), std::pair("DEVICE", device)}) {
                if (const std::size_t at = text.find(word); at != std::string::npos) {
                    text.replace(at, std::strlen(word), value);
                }
            }
            std::string script = ".open '" + path + "'\n";
            for (const CollectionKind kind : kKinds) {
                script += "SELECT " + text + " FROM " + TableName(kind) + ";\n";
            }
            return script;
        };
    }

    Cost Zorvctl(const Work& work, const fs::path& folder) const {
        std::vector<std::string> command = {BuildFolder() / "bin" / "zorvctl"};
        command.insert(command.end(), work.words.begin(), work.words.end());
        command.push_back(folder);
        fs::remove_all(data_);
        return RunInto(ours_, command);
    }

    fs::path WriteScript(const Work& work, std::size_t files, bool checks) const {
        const fs::path path = fleet_.Folder() / (checks ? "checking.sql" : "script.sql");
        std::ofstream script(path);
        script << work.start;
        fleet_.WriteScript(
            script, files, [&](const std::string& file, const std::string& name, const std::string& device) {
                std::string text = work.statements(file, name, device);
                const char* const check =
                    text.starts_with("ATTACH") ? "PRAGMA one.integrity_check(1);\n" : "PRAGMA integrity_check(1);\n";
                return text.insert(text.find('\n') + 1, checks ? check : "");
            });
        script << work.end;
        return path;
    }

    // Returns how many times the shell's time it takes.
    double Measure(const Work& work, std::size_t files) {
        const fs::path folder = fleet_.Some(files);
        const fs::path checking = WriteScript(work, files, true), script = WriteScript(work, files, false);
        std::vector<Cost> ours, shells, unchecked, decodes;
        for (int run = 0; run < (files > 1000 ? (runs_ + 2) / 3 : runs_); ++run) {
            shells.push_back(RunInto(shells_, {"/usr/bin/sqlite3"}, checking));
            ours.push_back(Zorvctl(work, folder));
            unchecked.push_back(RunInto(shells_, {"/usr/bin/sqlite3"}, script));
            decodes.push_back(
                RunProcess({BuildFolder() / "bench" / "records-bench", "--decode", folder.string() + ".txt"}));
        }
        if (!work.same()) {
            std::fprintf(stderr, "records-bench: %s gives out other rows than the shell\n", work.name);
            std::exit(1);
        }
        const Cost our = Median(ours), shell = Median(shells), bare = Median(unchecked);
        results_.Row({work.name, std::to_string(files), Digits(1000.0 * static_cast<double>(files) / our.wall, 0),
                      Digits(our.wall, 1), Digits(our.cpu, 1), Digits(our.memory, 1), Digits(shell.wall, 1),
                      Digits(shell.cpu, 1), Digits(shell.memory, 1), Digits(our.wall / shell.wall, 2),
                      Digits(bare.wall, 1), Digits(our.wall / bare.wall, 2), Digits(Median(decodes).wall, 1)});
        return our.wall / shell.wall;
    }

    void Grow(const Work& query, const Work& data) {
        std::vector<std::pair<std::string, std::pair<double, double>>> memory;
        results_.Plot("Looking at so many files", "files", "ms");
        for (const std::size_t files : {1, 10, 100, 1000, 10000}) {
            for (const auto& [work, name] : {std::pair(&query, "query"), std::pair(&data, "export")}) {
                const Cost cost = Zorvctl(*work, fleet_.Some(files));
                results_.Point(name, static_cast<double>(files), cost.wall);
                memory.push_back({name, {static_cast<double>(files), cost.memory}});
            }
        }
        results_.Plot("Peak memory of that", "files", "MiB");
        for (const auto& [name, point] : memory) {
            results_.Point(name, point.first, point.second);
        }
    }

    int runs_;
    Fleet fleet_;
    fs::path ours_, shells_, data_;
    Results results_;
    std::vector<double> ratios_;
};

int Decode(const char* list) {
    std::ifstream lines(list);
    std::string path, last;
    while (std::getline(lines, path)) {
        last = Bytes(path);
        Transform(last);
    }
    return last.starts_with("SQLite") ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--decode") == 0) {
        return Decode(argv[2]);
    }
    const fs::path folder = BuildFolder() / "bench" / "records";  // takes some 4 GB
    RecordsBench(argc > 1 ? std::atoi(argv[1]) : 5, folder).Run();
    fs::remove_all(folder);
    return 0;
}
