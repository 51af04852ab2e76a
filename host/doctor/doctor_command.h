// SPDX-License-Identifier: Apache-2.0
// krelvcp doctor: why a device loads the effect, or does not.
#ifndef KREL_HOST_DOCTOR_DOCTOR_COMMAND_H
#define KREL_HOST_DOCTOR_DOCTOR_COMMAND_H

namespace CLI {  // NOLINT(readability-identifier-naming): the library's name
class App;
}

namespace krel::host {

void add_doctor_command(CLI::App& app);

}  // namespace krel::host

#endif
