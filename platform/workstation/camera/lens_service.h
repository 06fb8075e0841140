// The camera's optics on D-Bus: the focal length of the lens, for anybody who asks with busctl.
#pragma once

#include <cstdint>

namespace workstation {

/// Serves the property FocalLength (unsigned, micrometres) of com.axis.Iris1 at /com/axis/Optics0 as com.axis.Optics2,
/// on a D-Bus daemon of this process's own, and points DBUS_SYSTEM_BUS_ADDRESS of this process at it. Returns when the
/// property can be read. Only the first call starts anything. False, and one line in the system log, when it could not
/// be started. A daemon that ends while the process runs is a trouble (health.h) and is started again at the same
/// address. Service and daemon end with the process, however that ends.
bool startLensService(std::uint32_t focal_um);

}  // namespace workstation
