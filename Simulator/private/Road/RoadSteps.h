#pragma once

#include <string>

#include "Simulator/private/Road/Road.h"

// Steps on the road that several stages take, and the ids of the messages.
namespace simulator {

constexpr int kStart = 1000;
constexpr int kSetPort = 1002;
constexpr int kSetWifi = 1003;
constexpr int kRfcommConnected = 1004;
constexpr int kRfcommDisconnected = 1005;
constexpr int kStartProjection = 1006;
constexpr int kStopStart = 1007;
constexpr int kReplyCanStart = 1008;
constexpr int kAddDevice = 1009;
constexpr int kDeleteDevice = 1010;
constexpr int kKeyAnswer = 1011;
constexpr int kTerminate = 1;
constexpr int kReady = 2000;
constexpr int kStartResponse = 2002;
constexpr int kMayItStart = 2003;
constexpr int kWifiStatus = 2004;
constexpr int kConnected = 2005;
constexpr int kLost = 2006;
constexpr int kKeyRequest = 2007;

/// An event with these details.
Expectation event(const std::string& from, const std::string& name, const Json& where = Json::object());

/// A notification to the controller about this phone.
Expectation notification(int message, const RoadPhone& phone, const Json& where = Json::object());

Json withMessage(int message, const Json& fields);

/// Sends a command about this phone and proves that it is handled.
void commandFor(Road& road, int message, const RoadPhone& phone, const Json& fields = Json::object());

/// The material for the receiver, as files of the working directory.
Json keyMaterial();

/// What a phone says is its own in every round, so that nothing can be taken for another's.
std::string wordsOf(const Road& road, const RoadPhone& phone);

/// What the phone answers to a start; 0 stands for no answer.
int startResultOf(const Road& road, const RoadPhone& phone);

/// The phone's RFCOMM channel has to stand on both sides before the phone says hello: what comes earlier is
/// lost.
void openRfcomm(Road& road, const RoadPhone& phone);
void connectRfcomm(Road& road, const RoadPhone& phone);

/// The phone has been told over this way the settings that were sent.
void proveSettings(Road& road, const RoadPhone& phone, const char* way);

/// Begins the phone's TCP connection, over which it greets by itself; the second waits for the answer.
void connectTcp(Road& road, const RoadPhone& phone);
void secureTcp(Road& road, const RoadPhone& phone);

void proveReady(Road& road, const RoadPhone& phone);

/// Orders the start of the projection and proves that it has reached the phone.
void startPhone(Road& road, const RoadPhone& phone);

}  // namespace simulator
