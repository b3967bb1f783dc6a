// SimEnvironment: what the simulated services need from the program that runs
// them: a clock, delayed work, a way to push messages to the client, a place
// to tell what the simulated players do, and the two things outside the
// services that a draft touches (the game client starting, the client's
// connection dropping).
//
// Ownership: the environment outlives the simulator that uses it.
// Threads: the simulator calls it on the thread that drives the host.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace Orvan::Simulation {

class SimEnvironment {
public:
    virtual ~SimEnvironment() = default;

    // Seconds since the run began, on the run's (possibly accelerated) clock.
    virtual double Now() const = 0;
    // Runs `task` once, `seconds` from now, on the driving thread.
    virtual void After(double seconds, std::string label, std::function<void()> task) = 0;
    // A message the service pushes to the client on its own.
    virtual void Push(std::string_view service, std::string_view method, std::string payload) = 0;
    // A line for the run's timeline: who did what ("Brynja", "joins the lobby").
    virtual void Narrate(std::string_view actor, std::string text) = 0;
    // The draft is over and the game client launches.
    virtual void StartGame() = 0;
    // The client loses its connection to the services for `seconds`.
    virtual void InterruptConnection(double seconds) = 0;
};

}  // namespace Orvan::Simulation
