// The figures of a run, as a table for people and as JSON for the scripts that draw them.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace velto::bench {

/// What a figure is to reach.
struct Goal {
    enum class Kind { AtMost, AtLeast };
    Kind kind;
    double value;
};

struct Figure {
    std::string name;
    std::string unit;
    double server = 0;
    std::optional<double> relay; // the same of the bare relay
    std::optional<Goal> goal;
};

struct Point {
    double x = 0;
    double y = 0;
};

struct Curve {
    std::string name;
    std::string x_axis;
    std::string y_axis;
    std::vector<Point> points;
};

class Report {
public:
    /// Takes a figure up and shows it, so that a long run is seen to go on.
    void add(Figure figure);
    void add(Curve curve);
    /// Gives the bare relay's value to the figure with this name.
    void add_relay(const std::string& name, double value);

    void print() const;
    nlohmann::ordered_json json() const;

private:
    std::vector<Figure> figures_;
    std::vector<Curve> curves_;
};

} // namespace velto::bench
