#pragma once
// A machine as a test wants it: files that the doctor takes for those of /proc and /sys.

#include <filesystem>
#include <fstream>
#include <string>

#include <QTemporaryDir>

/// Stands before /proc and /sys.
class SystemRoot {
public:
    SystemRoot& file(const std::string& path, const std::string& content) {
        const std::filesystem::path whole = root() + path;
        std::filesystem::create_directories(whole.parent_path());
        std::ofstream(whole) << content;
        return *this;
    }
    /// A line of the table of UDP sockets. @param address  as the system prints it
    SystemRoot& udp(const std::string& address_and_port, int inode,
                    const std::string& remote = "00000000:0000") {
        table_ += "  10: " + address_and_port + " " + remote +
                  " 07 00000000:00000000 00:00000000 00000000     0        0 " + std::to_string(inode) +
                  " 2 0000000000000000 0\n";
        return file("/proc/net/udp",
                    "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  "
                    "timeout inode ref pointer drops\n" +
                        table_);
    }
    SystemRoot& process(int id, const std::string& name, int inode) {
        const std::string directory = "/proc/" + std::to_string(id);
        file(directory + "/comm", name + "\n");
        std::filesystem::create_directories(root() + directory + "/fd");
        std::filesystem::create_symlink("socket:[" + std::to_string(inode) + "]",
                                        root() + directory + "/fd/" + std::to_string(inode));
        return *this;
    }
    SystemRoot& governor(const std::string& processor, const std::string& name) {
        return file("/sys/devices/system/cpu/" + processor + "/cpufreq/scaling_governor", name + "\n");
    }
    SystemRoot& clock_source(const std::string& name) {
        return file("/sys/devices/system/clocksource/clocksource0/current_clocksource", name + "\n");
    }
    SystemRoot& memory(int total_mebibytes, int available_mebibytes) {
        return file("/proc/meminfo", "MemTotal:       " + std::to_string(total_mebibytes * 1024) +
                                         " kB\nMemFree:  1 kB\nMemAvailable:   " +
                                         std::to_string(available_mebibytes * 1024) + " kB\n");
    }
    [[nodiscard]] std::string root() const { return directory_.path().toStdString(); }

private:
    QTemporaryDir directory_;
    std::string table_;
};
