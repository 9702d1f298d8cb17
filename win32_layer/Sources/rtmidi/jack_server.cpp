#include "jack_server.h"

#include <pthread.h>

#include <algorithm>
#include <utility>

#include "client_name.h"

namespace win32_layer {

std::atomic<bool> JackServer::isInUse_{false};

std::shared_ptr<JackServer> JackServer::Connect() {
    if (isInUse_)
        return nullptr;
    // That no server runs is no news.
    jack_set_error_function([](const char*) {});
    jack_set_info_function([](const char*) {});
    std::shared_ptr<JackServer> server(new JackServer);
    isInUse_ = true;
    server->client_ = jack_client_open(kClientName, JackNoStartServer, nullptr);
    if (!server->client_)
        return nullptr;
    jack_set_process_callback(server->client_, &OnCycle, server.get());
    jack_on_shutdown(server->client_, &OnShutdown, server.get());
    jack_set_port_registration_callback(server->client_, &OnRegistration, server.get());
    if (jack_activate(server->client_) != 0)
        return nullptr;
    return server;
}

JackServer::~JackServer() {
    if (client_)
        jack_client_close(client_);
    isInUse_ = false;
}

std::vector<std::string> JackServer::GetPorts(unsigned long flags) const {
    std::vector<std::string> names;
    const char** const ports = jack_get_ports(client_, nullptr, JACK_DEFAULT_MIDI_TYPE, flags);
    for (std::size_t i = 0; ports && ports[i]; ++i)
        names.emplace_back(ports[i]);
    jack_free(ports);
    return names;
}

bool JackServer::HasPort(const std::string& name) const {
    return jack_port_by_name(client_, name.c_str()) != nullptr;
}

std::string JackServer::GetAlias(const std::string& name) const {
    const jack_port_t* const port = jack_port_by_name(client_, name.c_str());
    if (!port)
        return {};
    const auto size = static_cast<std::size_t>(jack_port_name_size()) + 1;
    std::vector<char> first(size), second(size);
    char* const aliases[] = {first.data(), second.data()};
    return jack_port_get_aliases(port, aliases) > 0 ? std::string(first.data()) : std::string();
}

std::vector<std::string> JackServer::TakeGonePorts() {
    const std::lock_guard lock(mutex_);
    return std::exchange(gone_, {});
}

void JackServer::Watch(const std::string& ownPort) {
    const std::lock_guard lock(mutex_);
    watched_.push_back(ownPort);
}

void JackServer::Forget(const std::string& ownPort) {
    const std::lock_guard lock(mutex_);
    std::erase(watched_, ownPort);
}

bool JackServer::HasEveryWatchedPort() const {
    std::vector<std::string> watched;
    {
        const std::lock_guard lock(mutex_);
        watched = watched_;
    }
    return std::all_of(watched.begin(), watched.end(), [this](const std::string& port) { return HasPort(port); });
}

// These are called on the library's threads, which it may cancel at any instruction: they
// neither lock nor allocate, unless they keep it from that.

int JackServer::OnCycle(jack_nframes_t, void* server) {
    ++static_cast<JackServer*>(server)->cycles_;
    return 0;
}

void JackServer::OnShutdown(void* server) {
    static_cast<JackServer*>(server)->isRunning_ = false;
}

void JackServer::OnRegistration(jack_port_id_t port, int isNew, void* server) {
    if (isNew)
        return;
    int before = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    {
        JackServer& self = *static_cast<JackServer*>(server);
        // The name outlasts the port.
        if (const char* const name = jack_port_name(jack_port_by_id(self.client_, port))) {
            const std::lock_guard lock(self.mutex_);
            self.gone_.emplace_back(name);
        }
    }
    pthread_setcancelstate(before, nullptr);
}

}  // namespace win32_layer
