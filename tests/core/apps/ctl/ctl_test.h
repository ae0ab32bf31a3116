#pragma once
// Base of the tests that run cuewrightctl against the real service.

#include <functional>
#include <string>
#include <vector>

#include <QObject>

#include "service_test.h"
#include "support/ending.h"

using tests::Ending;

/// Why this program has no network of its own, with an eth0 whose broadcast address is 192.0.2.255; empty
/// when it has.
[[nodiscard]] const std::string& network_missing();

class CtlTest : public integration::ServiceTest {
protected:
    /// Runs `cuewrightctl ARGUMENTS...` on the service's bus. Bus objects of this thread are served
    /// meanwhile.
    [[nodiscard]] Ending ctl(const std::vector<std::string>& arguments) const;
    /// The same with a text as standard input.
    [[nodiscard]] Ending ctl_with_input(const std::string& input, const std::string& arguments) const;
    /// Runs it and expects that all goes well and nothing is said on standard error. Its output.
    std::string ctl_well(const std::vector<std::string>& arguments) const;

    [[nodiscard]] std::vector<std::string> command(const std::vector<std::string>& arguments) const;
    [[nodiscard]] std::vector<std::string> environment() const;

    /// Halts the service, so that it answers nothing; it goes on at resume_service().
    void halt_service();
    void resume_service();
};

/// Waits for the end of a program, serving bus objects of this thread.
[[nodiscard]] Ending ending_of(tests::ChildProgram& program);

/// The discovery's method that lists its nodes.
class NodeLister final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.torvexserver.Netsurvey.Dump")

public:
    /// @param records  what list_nodes() answers
    explicit NodeLister(const QString& records) : records_(records) {}

public Q_SLOTS:
    QString list_nodes() const { return records_; }

private:
    QString records_;
};

/// The test in the role of the discovery.
class FakeDiscovery {
public:
    FakeDiscovery(const std::string& bus_address, const QString& records);
    ~FakeDiscovery();
    FakeDiscovery(const FakeDiscovery&) = delete;
    FakeDiscovery& operator=(const FakeDiscovery&) = delete;

private:
    integration::BusConnection connection_;
    /// Goes before the connection, whose thread looks at the objects that are left when it closes.
    NodeLister lister_;
};
