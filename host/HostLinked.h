/*
 * The components linked into the host executable (SysTarget, and SysFile in
 * builds that have it), made known to the component manager before start-up.
 */
#ifndef KESTREL_HOST_LINKED_H
#define KESTREL_HOST_LINKED_H

namespace kestrel::host {

void HostRegisterLinkedComponents();

} // namespace kestrel::host

#endif
