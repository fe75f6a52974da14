// Design decisions of the agent frame and the local-information subsystem, each with its reason,
// kept in one place. Decisions that concern another agent's record are written beside that record
// in records/AgentRecords.h; the start-up, status, management-address, network-policy, external-TLV,
// power and classification code repeats its own at the top of its main source file.
#pragma once

// Start-up, mounts and shutdown (agent/): the agent's main source file lists the mount modes of
// the power, classification and 802.1X paths, the redundancy test that picks the start-up path,
// handleStandbyMode, and where the status accumulator, cell-directory and system-description
// reactors are created.
//
// Status accumulation and standby mirroring (agent/): the same file lists which cell's port status
// wins, how cells are added to or skipped in the status directory, the redundancy-to-standby
// mapping and which cell supplies the accumulated management VRF.
//
// Enumerator names. Admin status: txOnly, rxOnly, txAndRx, disabled (the MIB's numbers, so that
// traces and the command line print the same value). Transmit modes: best, all, intfName (the
// three ways the operator words the option). Switchport modes 3 to 5: tap, tool, routed; forwarding
// models 2 and 3: dataLink, bridged; link-status values: see records/AgentRecords.h.
//
// Interface index. Root::ifIndex reads the ifIndex attribute of the interface's status in the
// all-interfaces directory: that status is what the interface agent publishes, so the agent needs
// no second provider; an interface without a status numbers as 0.
//
// Interface of the root factory. rootFactory and the Root constructor also take the scheduler and
// the cell id: port statuses are stamped with the scheduler's time, and the management-port rules
// need to know which supervisor this is.
//
// Capabilities at start-up. Root::localSystemIs writes the supported (bridge, router) and enabled
// (bridge) capabilities when it takes the local system, keeping a router bit already set, so that
// a restarted agent does not withdraw routing for the moment before InputSm re-evaluates it.
//
// Initial synchronisation. After the fixed order, InputSm::handleInitialized also runs
// handleBridgingMaxFrameSize and handleIp6ManagementAddress: ports created before InputSm have no
// frame size yet, and an IPv6 address configured before start-up sees no change that would bring
// it in; both handlers are idempotent.
//
// Packet access on the active supervisor. A qualifying port (other than the other supervisor's
// management port) is entered in the desired-interface directory together with its port status,
// and withdrawn first when it stops qualifying: packet access is what starts and stops the port
// engine, so it follows the port's lifetime.
//
// Port status lifetime. A port that stops qualifying loses its PortConfig, LocalPort and packet
// access but keeps its PortStatus; the start-up clean-up removes port statuses nobody tracks,
// and keeping the counters across a brief change of forwarding model matches what the operator sees.
//
// Reactor teardown. Deleting a port's or a LAG's reactor closes it (the port's records, the LAG's
// memberships), so an active supervisor turning standby leaves no stale ports behind;
// ActiveEthIntfStatusDirSm is deleted before InputSm so that closing still reaches it.
//
// Network policy of a port. doSyncPortConfigNetworkPolicy copies the port's command-line
// networkPolicyConfig into its PortConfig, and empties it when the port has no command-line entry
// or LLDP is disabled: with no operator policy there is nothing to answer a phone with.
//
// Ethernet port 0. Host interface names such as eth0 parse as port 0; their name-derived priority
// uses the first Ethernet slot instead of wrapping below the band (ports count from 1 otherwise).
//
// LAG re-synchronisation. addLagMember and removeLagMember re-run syncPortConfig for the member on
// every call, changed LAG or not: it is idempotent and cheap, and it keeps the member's admin
// status right when a LAG's membership is replayed at start-up. doNotifyPortLagChange re-applies
// the member's admin status, as the LAG's switchport mode now governs it.
//
// Switch-interface removal. When a switch-interface configuration goes, its port loses its port
// VLAN id and the port (or a LAG's members) has its admin status re-applied without the mode rule.
//
// Standby supervisor's own interfaces. An interface belongs to this cell when it is a management
// port named "Management<cellId>/..."; Ethernet ports are driven by the active supervisor only.
//
// 802.1X bypass trace. The forwarding model in "Dot1x's LLDP bypass enabled ..." prints as its
// number (2), as in the interface agent's own status output.
//
// Clear request. RemTablesCliConfig's attribute is remTablesClearRequest (time, requester, origin);
// LLDP_REMOTE_TABLES_CLEARED is logged at severity notice with no rate limit: it is an operator's
// action, worth keeping in the log, and happens at most once per request.
//
// Management addresses, network policy, external TLVs, power over Ethernet: their main source files
// (MgmtAddr.cc, NetworkPolicy.cc, ExternalTlv.cc, Poe.cc) open with their decisions (the reserved
// source-interface priority, the skipped-address take-over order, secondary priorities, the IPv6
// address without an ifIndex, the network-policy record's rules, the external-TLV record layout,
// the power-subsystem attributes and power types). The two priorities this file's code shares with
// them are reservedSourceIntfPriority() (type sourceIntf, sorting before every interface) and
// fallbackManAddrPriority() (type fallback, sorting after every interface), in LldpInputSm.h.
//
// Neighbour classification (classification/): its main source file lists the telephone
// classification value and the neighbour fields it writes.
