/// How a master Action and its parallel copies meet and part in a run.
///
/// The master resolves names and reads the pins from 1 on; its copies wait for that in their first
/// step, then take what it found. In `afterRun` each copy tells the master that it is done with the
/// master's memory, exactly once per run whatever happened to it, and the master waits for all of
/// them before it frees anything. An Action has one of these as a member and calls
///
///     rewind       in rewindRun,
///     letCopiesGo  on the master, when the first row is resolved or has failed, or there is none,
///     meetMaster   on a copy, before it reads the master's members,
///     part         in afterRun, before it frees what the copies share.
#pragma once

class ActionItem;

class ParallelMeeting {
public:
    /// `action` owns the meeting.
    explicit ParallelMeeting(ActionItem& action) : action_(action) {}

    void rewind();

    /// The first call in a run lets the copies go; what they read is not written from here on.
    void letCopiesGo();

    /// Waits for the master. False when the run has ended: the copy has then finished.
    bool meetMaster();

    /// The first call in a run parts, others do nothing. On the master it waits for every copy's.
    void part();

private:
    ActionItem& action_;
    bool copiesWait_ = true;
    bool together_ = true;
};
