#include "Server/HttpServer.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <exception>
#include <list>
#include <microhttpd.h>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "Posix/WithoutSignals.h"
#include "Server/Lane.h"

namespace OvixHttp {

std::string HttpRequest::argument(const std::string& name) const {
    const auto found = arguments.find(name);
    return found != arguments.end() ? found->second : std::string();
}

std::uint64_t HttpRequest::number(const std::string& name) const {
    const std::string text = argument(name);
    std::uint64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

namespace {

/// A request whose answer is being made by a lane.
struct Exchange {
    HttpRequest request;
    std::optional<HttpAnswer> answer;
};

HttpAnswer refusal(unsigned int status, const std::string& text) {
    HttpAnswer answer;
    answer.status = status;
    answer.body = text + "\n";
    return answer;
}

std::string_view headerOf(MHD_Connection* connection, const char* name) {
    const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value != nullptr ? value : "";
}

MHD_Result sendAnswer(MHD_Connection* connection, const HttpAnswer& answer) {
    MHD_Response* const response = MHD_create_response_from_buffer(
        answer.body.size(), const_cast<char*>(answer.body.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) {
        return MHD_NO;
    }
    const std::pair<const char*, const char*> headers[]{
        {"Content-Type", answer.type.c_str()},
        {"Content-Security-Policy", answer.policy.c_str()},
        {"Cache-Control", "no-store"},
        {"Connection", "close"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Referrer-Policy", "no-referrer"},
        {"X-Content-Type-Options", "nosniff"},
    };
    for (const auto& [name, value] : headers) {
        MHD_add_response_header(response, name, value);
    }
    if (answer.status == MHD_HTTP_METHOD_NOT_ALLOWED) {
        MHD_add_response_header(response, "Allow", "GET, HEAD");
    }
    const MHD_Result queued = MHD_queue_response(connection, answer.status, response);
    MHD_destroy_response(response);
    return queued;
}

/// With zero bytes, which a query may have.
HttpArguments argumentsOf(MHD_Connection* connection) {
    HttpArguments all;
    const MHD_KeyValueIteratorN add = [](void* arguments, MHD_ValueKind /*kind*/, const char* name,
                                         std::size_t nameSize, const char* value,
                                         std::size_t valueSize) {
        auto& argument = static_cast<HttpArguments*>(arguments)->emplace_back(
            std::string(name, nameSize), std::nullopt);
        if (value != nullptr) {
            argument.second = std::string(value, valueSize);
        }
        return MHD_YES;
    };
    MHD_get_connection_values_n(connection, MHD_GET_ARGUMENT_KIND, add, &all);
    return all;
}

bool hasBody(MHD_Connection* connection) {
    const std::string_view length = headerOf(connection, "Content-Length");
    return (!length.empty() && length != "0") || !headerOf(connection, "Transfer-Encoding").empty();
}

HttpAnswer made(const HttpRoute& route, const HttpRequest& request) {
    try {
        return route.answer(request);
    } catch (const std::exception&) {
        return refusal(MHD_HTTP_INTERNAL_SERVER_ERROR, "the answer could not be made");
    }
}

} // namespace

struct HttpServer::Parts {
    /// Of a connection. One that waits for its client may be closed for others.
    struct Client {
        int socket = -1;
        bool isBeingAnswered = false;
        bool isClosed = false; ///< by this end
    };

    static Client& clientOf(MHD_Connection* connection) {
        constexpr auto context = MHD_CONNECTION_INFO_SOCKET_CONTEXT;
        return *static_cast<Client*>(MHD_get_connection_info(connection, context)->socket_context);
    }

    Endpoint endpoint;
    std::vector<std::string> names;
    Routes routes;
    Posix::FileDescriptor listener;
    std::list<Client> clients;                          ///< oldest first; of the server's thread
    std::size_t open = 0;                               ///< those that this end has not closed
    std::map<std::size_t, std::unique_ptr<Lane>> lanes; ///< by number
    MHD_Daemon* daemon = nullptr;

    void start();
    MHD_Result begin(MHD_Connection* connection, const char* path, const char* method,
                     Exchange*& exchange);
    std::optional<HttpAnswer> refused(MHD_Connection* connection, const char* method) const;
    void connected(MHD_Connection* connection, void** context);
    void disconnected(const Client* client);
};

/// Why a request is not looked at; unset when it is.
std::optional<HttpAnswer> HttpServer::Parts::refused(MHD_Connection* connection,
                                                     const char* method) const {
    if (std::strcmp(method, "GET") != 0 && std::strcmp(method, "HEAD") != 0) {
        return refusal(MHD_HTTP_METHOD_NOT_ALLOWED, "nothing can be changed here");
    }
    if (!isOwnHost(headerOf(connection, "Host"), endpoint, names)) {
        return refusal(MHD_HTTP_MISDIRECTED_REQUEST,
                       "this is no host of that name; --metrics-host allows one");
    }
    if (hasBody(connection)) {
        return refusal(MHD_HTTP_BAD_REQUEST, "no body is taken");
    }
    return std::nullopt;
}

MHD_Result HttpServer::Parts::begin(MHD_Connection* connection, const char* path,
                                    const char* method, Exchange*& exchange) {
    if (const auto answer = refused(connection, method)) {
        return sendAnswer(connection, *answer);
    }
    const auto found = routes.find(path);
    if (found == routes.end()) {
        return sendAnswer(connection, refusal(MHD_HTTP_NOT_FOUND, "there is nothing here"));
    }
    const HttpArguments arguments = argumentsOf(connection);
    if (const std::string fault = faultOf(arguments, found->second.parameters); !fault.empty()) {
        return sendAnswer(connection, refusal(MHD_HTTP_BAD_REQUEST, fault));
    }
    auto waiting = std::make_unique<Exchange>();
    waiting->request.path = path;
    for (const auto& [name, value] : arguments) {
        waiting->request.arguments.emplace(name, value.value_or(""));
    }
    Exchange* const work = waiting.get();
    clientOf(connection).isBeingAnswered = true;
    MHD_suspend_connection(connection);
    const HttpRoute& route = found->second;
    const bool isTaken = lanes.at(route.lane)->add([connection, work, &route] {
        work->answer = made(route, work->request);
        MHD_resume_connection(connection);
    });
    exchange = waiting.release(); // until the connection says that it is over
    if (!isTaken) {
        exchange->answer = refusal(MHD_HTTP_SERVICE_UNAVAILABLE, "too many ask at once");
        MHD_resume_connection(connection);
    }
    return MHD_YES;
}

void HttpServer::Parts::connected(MHD_Connection* connection, void** context) {
    const auto* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    const auto oldest = std::find_if(clients.begin(), clients.end(), [](const Client& client) {
        return !client.isBeingAnswered && !client.isClosed;
    });
    if (++open > mostConnections && oldest != clients.end()) {
        shutdown(oldest->socket, SHUT_RDWR); // which ends it as if its client had
        oldest->isClosed = true;
        --open;
    }
    *context = &clients.emplace_back(Client{info->connect_fd});
}

void HttpServer::Parts::disconnected(const Client* client) {
    open -= client->isClosed ? 0 : 1;
    clients.remove_if([client](const Client& each) { return &each == client; });
}

void HttpServer::Parts::start() {
    for (const auto& [path, route] : routes) {
        if (auto& lane = lanes[route.lane]; !lane) {
            lane = std::make_unique<Lane>(route.mostWaiting);
        }
    }
    const MHD_AccessHandlerCallback access =
        [](void* parts, MHD_Connection* connection, const char* path, const char* method,
           const char* /*version*/, const char* /*body*/, std::size_t* /*size*/, void** exchange) {
            auto*& of = *reinterpret_cast<Exchange**>(exchange);
            if (of == nullptr) {
                return static_cast<Parts*>(parts)->begin(connection, path, method, of);
            }
            clientOf(connection).isBeingAnswered = false; // it is the client's turn again
            return sendAnswer(connection, of->answer.value());
        };
    const MHD_NotifyConnectionCallback notice = [](void* parts, MHD_Connection* connection,
                                                   void** context, auto what) {
        auto& all = *static_cast<Parts*>(parts);
        what == MHD_CONNECTION_NOTIFY_STARTED
            ? all.connected(connection, context)
            : all.disconnected(static_cast<const Client*>(*context));
    };
    const MHD_RequestCompletedCallback over = [](void* /*parts*/, MHD_Connection* /*connection*/,
                                                 void** exchange, auto /*why*/) {
        delete static_cast<Exchange*>(*exchange);
        *exchange = nullptr;
    };
    constexpr unsigned int silence = 5; // seconds
    constexpr unsigned int most = 2 * mostConnections;
    const Posix::WithoutSignals here;
    daemon = MHD_start_daemon(
        MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ITC, 0, nullptr, nullptr,
        access, this, MHD_OPTION_LISTEN_SOCKET, listener.value(), MHD_OPTION_NOTIFY_CONNECTION,
        notice, this, MHD_OPTION_NOTIFY_COMPLETED, over, this, MHD_OPTION_CONNECTION_LIMIT, most,
        MHD_OPTION_CONNECTION_TIMEOUT, silence, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
        mostRequestBytes, MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_END);
    if (daemon == nullptr) {
        throw std::runtime_error("cannot serve at " + endpoint.text());
    }
}

HttpServer::HttpServer(const Endpoint& endpoint, std::vector<std::string> names, Routes routes)
    : parts_(std::make_unique<Parts>()) {
    parts_->endpoint = endpoint;
    parts_->names = std::move(names);
    parts_->routes = std::move(routes);
    parts_->listener = listenAt(endpoint);
    parts_->start();
}

HttpServer::~HttpServer() {
    MHD_quiesce_daemon(parts_->daemon); // the listener stays this one's
    for (const auto& [number, lane] : parts_->lanes) {
        lane->stop(); // no connection may be suspended at the end
    }
    MHD_stop_daemon(parts_->daemon);
    if (const std::string& path = parts_->endpoint.path; !path.empty()) {
        unlink(path.c_str());
    }
}

} // namespace OvixHttp
