#pragma once

#include <cstdint>
#include <memory>

struct mnl_socket;
struct nlmsghdr;

namespace OvixAgent {

/// Takes interfaces down and gives them back, by rtnetlink. One that was taken down has an
/// alternative name that says so ("down-by-ovix-agent-INDEX", as `ip link` shows), by which whoever
/// comes later tells it from one that an operator has taken down.
class LinkPower {
  public:
    /// Throws std::system_error.
    LinkPower();

    /// Takes a link down if it is up; its IPv6 addresses stay. 0, or the error number of the step
    /// that the kernel has refused.
    int takeDown(unsigned int interface);
    /// Brings a link up that was taken down; leaves any other as it is. As above.
    int giveBack(unsigned int interface);
    /// 0 if this process may take the link down and bring it up.
    int tryOut(unsigned int interface);

  private:
    struct Closer {
        void operator()(mnl_socket* socket) const noexcept;
    };

    int ask(nlmsghdr& request, unsigned int* flags = nullptr);
    int flagsOf(unsigned int interface, unsigned int& flags);
    int upIs(unsigned int interface, bool isUp);
    int mark(unsigned int interface, bool isMarked);
    bool isMarked(unsigned int interface);

    std::unique_ptr<mnl_socket, Closer> socket_;
    std::uint32_t sequence_ = 0;
};

} // namespace OvixAgent
