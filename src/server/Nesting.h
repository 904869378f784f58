// Whether something is being worked on, which may begin again within itself.
#pragma once

namespace qz::server {

class Nesting {
public:
    void enter() { ++depth_; }
    void leave() { --depth_; }
    bool inside() const { return depth_ > 0; }

    /// Inside from its construction to its end.
    class Scope {
    public:
        explicit Scope(Nesting& nesting) : nesting_(nesting) { nesting_.enter(); }
        ~Scope() { nesting_.leave(); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        Nesting& nesting_;
    };

private:
    int depth_ = 0;
};

} // namespace qz::server
