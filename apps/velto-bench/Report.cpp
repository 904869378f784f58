#include "Report.h"

#include "common/Console.h"

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <sys/utsname.h>

namespace velto::bench {

namespace {

std::string shown(double value)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(value < 100 ? 2 : 0) << value;
    return text.str();
}

bool is_met(const Figure& figure)
{
    return figure.goal->kind == Goal::Kind::AtMost ? figure.server <= figure.goal->value
                                                   : figure.server >= figure.goal->value;
}

std::string goal_text(const Figure& figure)
{
    if (!figure.goal) {
        return "";
    }
    return (figure.goal->kind == Goal::Kind::AtMost ? "<= " : ">= ") + shown(figure.goal->value)
        + (is_met(figure) ? "  met" : "  missed");
}

std::string line_of(const Figure& figure)
{
    const bool compared = figure.relay && *figure.relay > 0;
    return in_column(figure.name, 52) + in_column(figure.unit, 10) + in_column(shown(figure.server), 11)
        + in_column(figure.relay ? shown(*figure.relay) : "-", 11)
        + in_column(compared ? shown(figure.server / *figure.relay) : "-", 8) + goal_text(figure);
}

std::string processor()
{
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("model name")) {
            return line.substr(line.find(':') + 2);
        }
    }
    return "unknown";
}

std::string now()
{
    const auto time = std::time(nullptr);
    std::ostringstream text;
    text << std::put_time(std::gmtime(&time), "%Y-%m-%d %H:%M:%S UTC");
    return text.str();
}

nlohmann::ordered_json json_of(const Figure& figure)
{
    nlohmann::ordered_json row{{"name", figure.name}, {"unit", figure.unit}, {"server", figure.server}};
    if (figure.relay) {
        row["relay"] = *figure.relay;
        if (*figure.relay > 0) {
            row["ratio"] = figure.server / *figure.relay;
        }
    }
    if (figure.goal) {
        row["goal"] =
            (figure.goal->kind == Goal::Kind::AtMost ? "at most " : "at least ") + shown(figure.goal->value);
        row["met"] = is_met(figure);
    }
    return row;
}

} // namespace

void Report::add(Figure figure)
{
    std::cerr << "  " << in_column(figure.name, 52) << shown(figure.server) << " " << figure.unit << "\n";
    figures_.push_back(std::move(figure));
}

void Report::add(Curve curve)
{
    for (const auto& point : curve.points) {
        std::cerr << "  " << in_column(curve.name + ", " + shown(point.x), 52) << shown(point.y) << "\n";
    }
    curves_.push_back(std::move(curve));
}

void Report::add_relay(const std::string& name, double value)
{
    for (auto& figure : figures_) {
        if (figure.name == name) {
            figure.relay = value;
        }
    }
}

void Report::print() const
{
    std::cout << in_column("", 52) << in_column("unit", 10) << in_column("server", 11)
              << in_column("relay", 11) << in_column("ratio", 8) << "goal\n";
    for (const auto& figure : figures_) {
        std::cout << line_of(figure) << "\n";
    }
    for (const auto& curve : curves_) {
        std::cout << "\n" << curve.name << " (" << curve.y_axis << ")\n";
        for (const auto& point : curve.points) {
            std::cout << in_column("  " + shown(point.x) + " " + curve.x_axis, 52) << shown(point.y) << "\n";
        }
    }
}

nlohmann::ordered_json Report::json() const
{
    utsname system{};
    uname(&system);
    nlohmann::ordered_json all{{"date", now()}, {"processor", processor()},
        {"system", std::string(system.sysname) + " " + system.release},
        {"figures", nlohmann::ordered_json::array()}, {"curves", nlohmann::ordered_json::array()}};
    for (const auto& figure : figures_) {
        all["figures"].push_back(json_of(figure));
    }
    for (const auto& curve : curves_) {
        nlohmann::ordered_json points = nlohmann::ordered_json::array();
        for (const auto& point : curve.points) {
            points.push_back({point.x, point.y});
        }
        all["curves"].push_back(
            {{"name", curve.name}, {"x", curve.x_axis}, {"y", curve.y_axis}, {"points", points}});
    }
    return all;
}

} // namespace velto::bench
