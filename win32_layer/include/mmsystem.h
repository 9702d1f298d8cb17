#pragma once

// The multimedia calls that engine and player use: MIDI stream output, MIDI output
// devices, MIDI inputs, one-shot timers. See windows.h.

#include <windows.h>

#define WINMMAPI __attribute__((visibility("default")))

typedef UINT MMRESULT;
typedef UINT MMVERSION;

#define MAXPNAMELEN 32

#define MMSYSERR_BASE 0
#define MIDIERR_BASE 64
#define TIMERR_BASE 96

#define MMSYSERR_NOERROR 0
#define MMSYSERR_ERROR (MMSYSERR_BASE + 1)
#define MMSYSERR_BADDEVICEID (MMSYSERR_BASE + 2)
#define MMSYSERR_NOTENABLED (MMSYSERR_BASE + 3)
#define MMSYSERR_ALLOCATED (MMSYSERR_BASE + 4)
#define MMSYSERR_INVALHANDLE (MMSYSERR_BASE + 5)
#define MMSYSERR_NODRIVER (MMSYSERR_BASE + 6)
#define MMSYSERR_NOMEM (MMSYSERR_BASE + 7)
#define MMSYSERR_NOTSUPPORTED (MMSYSERR_BASE + 8)
#define MMSYSERR_BADERRNUM (MMSYSERR_BASE + 9)
#define MMSYSERR_INVALFLAG (MMSYSERR_BASE + 10)
#define MMSYSERR_INVALPARAM (MMSYSERR_BASE + 11)
#define MMSYSERR_HANDLEBUSY (MMSYSERR_BASE + 12)
#define MMSYSERR_INVALIDALIAS (MMSYSERR_BASE + 13)
#define MMSYSERR_BADDB (MMSYSERR_BASE + 14)
#define MMSYSERR_KEYNOTFOUND (MMSYSERR_BASE + 15)
#define MMSYSERR_READERROR (MMSYSERR_BASE + 16)
#define MMSYSERR_WRITEERROR (MMSYSERR_BASE + 17)
#define MMSYSERR_DELETEERROR (MMSYSERR_BASE + 18)
#define MMSYSERR_VALNOTFOUND (MMSYSERR_BASE + 19)
#define MMSYSERR_NODRIVERCB (MMSYSERR_BASE + 20)
#define MMSYSERR_MOREDATA (MMSYSERR_BASE + 21)
#define MMSYSERR_LASTERROR (MMSYSERR_BASE + 21)

#define MIDIERR_UNPREPARED (MIDIERR_BASE + 0)
#define MIDIERR_STILLPLAYING (MIDIERR_BASE + 1)
#define MIDIERR_NOMAP (MIDIERR_BASE + 2)
#define MIDIERR_NOTREADY (MIDIERR_BASE + 3)
#define MIDIERR_NODEVICE (MIDIERR_BASE + 4)
#define MIDIERR_INVALIDSETUP (MIDIERR_BASE + 5)
#define MIDIERR_BADOPENMODE (MIDIERR_BASE + 6)
#define MIDIERR_DONT_CONTINUE (MIDIERR_BASE + 7)
#define MIDIERR_LASTERROR (MIDIERR_BASE + 7)

#define CALLBACK_TYPEMASK 0x00070000l
#define CALLBACK_NULL 0x00000000l
#define CALLBACK_WINDOW 0x00010000l
#define CALLBACK_TASK 0x00020000l
#define CALLBACK_THREAD CALLBACK_TASK
#define CALLBACK_FUNCTION 0x00030000l
#define CALLBACK_EVENT 0x00050000l

#define MM_MIM_OPEN 0x3C1
#define MM_MIM_CLOSE 0x3C2
#define MM_MIM_DATA 0x3C3
#define MM_MIM_LONGDATA 0x3C4
#define MM_MIM_ERROR 0x3C5
#define MM_MIM_LONGERROR 0x3C6
#define MM_MIM_MOREDATA 0x3CC
#define MIM_OPEN MM_MIM_OPEN
#define MIM_CLOSE MM_MIM_CLOSE
#define MIM_DATA MM_MIM_DATA
#define MIM_LONGDATA MM_MIM_LONGDATA
#define MIM_ERROR MM_MIM_ERROR
#define MIM_LONGERROR MM_MIM_LONGERROR
#define MIM_MOREDATA MM_MIM_MOREDATA

#define MM_MOM_OPEN 0x3C7
#define MM_MOM_CLOSE 0x3C8
#define MM_MOM_DONE 0x3C9
#define MM_MOM_POSITIONCB 0x3CA
#define MOM_OPEN MM_MOM_OPEN
#define MOM_CLOSE MM_MOM_CLOSE
#define MOM_DONE MM_MOM_DONE
#define MOM_POSITIONCB MM_MOM_POSITIONCB

#define MIDI_MAPPER (static_cast<UINT>(-1))

#define MOD_MIDIPORT 1
#define MOD_SYNTH 2
#define MOD_SQSYNTH 3
#define MOD_FMSYNTH 4
#define MOD_MAPPER 5
#define MOD_WAVETABLE 6
#define MOD_SWSYNTH 7

#define MIDICAPS_VOLUME 0x0001
#define MIDICAPS_LRVOLUME 0x0002
#define MIDICAPS_CACHE 0x0004
#define MIDICAPS_STREAM 0x0008

#define MHDR_DONE 0x00000001
#define MHDR_PREPARED 0x00000002
#define MHDR_INQUEUE 0x00000004
#define MHDR_ISSTRM 0x00000008

#define MEVT_F_SHORT 0x00000000
#define MEVT_F_LONG 0x80000000u
#define MEVT_F_CALLBACK 0x40000000u
#define MEVT_SHORTMSG (static_cast<BYTE>(0x00))
#define MEVT_TEMPO (static_cast<BYTE>(0x01))
#define MEVT_NOP (static_cast<BYTE>(0x02))
#define MEVT_LONGMSG (static_cast<BYTE>(0x80))
#define MEVT_COMMENT (static_cast<BYTE>(0x82))
#define MEVT_VERSION (static_cast<BYTE>(0x84))
#define MEVT_EVENTTYPE(x) (static_cast<BYTE>(((x) >> 24) & 0xFF))
#define MEVT_EVENTPARM(x) (static_cast<DWORD>((x)&0x00FFFFFFu))

#define TIMERR_NOERROR 0
#define TIMERR_NOCANDO (TIMERR_BASE + 1)
#define TIME_ONESHOT 0x0000
#define TIME_PERIODIC 0x0001
#define TIME_CALLBACK_FUNCTION 0x0000
#define TIME_CALLBACK_EVENT_SET 0x0010
#define TIME_CALLBACK_EVENT_PULSE 0x0020
#define TIME_KILL_SYNCHRONOUS 0x0100

DECLARE_HANDLE(HMIDIIN);
DECLARE_HANDLE(HMIDIOUT);
DECLARE_HANDLE(HMIDISTRM);
typedef HMIDIIN* LPHMIDIIN;
typedef HMIDIOUT* LPHMIDIOUT;
typedef HMIDISTRM* LPHMIDISTRM;

typedef void(CALLBACK DRVCALLBACK)(HMIDIOUT handle, UINT message, DWORD_PTR instance, DWORD_PTR parameter1,
                                   DWORD_PTR parameter2);
typedef DRVCALLBACK* LPDRVCALLBACK;
typedef DRVCALLBACK MIDICALLBACK;
typedef MIDICALLBACK* LPMIDICALLBACK;

typedef void(CALLBACK TIMECALLBACK)(UINT timerId, UINT message, DWORD_PTR user, DWORD_PTR reserved1,
                                    DWORD_PTR reserved2);
typedef TIMECALLBACK* LPTIMECALLBACK;

typedef struct tagMIDIINCAPSW {
    WORD wMid;
    WORD wPid;
    MMVERSION vDriverVersion;
    WCHAR szPname[MAXPNAMELEN];  // a name of 32 characters has no terminating zero
    DWORD dwSupport;
} MIDIINCAPSW, *PMIDIINCAPSW, *LPMIDIINCAPSW;

typedef struct tagMIDIOUTCAPSW {
    WORD wMid;
    WORD wPid;
    MMVERSION vDriverVersion;
    WCHAR szPname[MAXPNAMELEN];  // a name of 32 characters has no terminating zero
    WORD wTechnology;
    WORD wVoices;
    WORD wNotes;
    WORD wChannelMask;
    DWORD dwSupport;
} MIDIOUTCAPSW, *PMIDIOUTCAPSW, *LPMIDIOUTCAPSW;

// From midiStreamOut until MOM_DONE, or from midiInAddBuffer until MIM_LONGDATA, the
// header and its data belong to the layer, which links its queues through lpNext and
// dwReserved.
typedef struct midihdr_tag {
    LPSTR lpData;
    DWORD dwBufferLength;
    DWORD dwBytesRecorded;
    DWORD_PTR dwUser;
    DWORD dwFlags;
    struct midihdr_tag* lpNext;
    DWORD_PTR reserved;
    DWORD dwOffset;  // of the event that a MOM_POSITIONCB is about
    DWORD_PTR dwReserved[8];
} MIDIHDR, *PMIDIHDR, *LPMIDIHDR;

// 16 bytes with its trailing array: a short event in a stream buffer has 12.
typedef struct midievent_tag {
    DWORD dwDeltaTime;
    DWORD dwStreamID;
    DWORD dwEvent;
    DWORD dwParms[1];
} MIDIEVENT;

extern "C" {

WINMMAPI UINT WINAPI midiOutGetNumDevs();
WINMMAPI MMRESULT WINAPI midiOutGetDevCapsW(UINT_PTR device, LPMIDIOUTCAPSW caps, UINT capsBytes);
WINMMAPI MMRESULT WINAPI midiOutGetErrorTextW(MMRESULT code, LPWSTR text, UINT textCharacters);
WINMMAPI MMRESULT WINAPI midiOutOpen(LPHMIDIOUT output, UINT device, DWORD_PTR callback, DWORD_PTR instance,
                                     DWORD flags);
WINMMAPI MMRESULT WINAPI midiOutShortMsg(HMIDIOUT output, DWORD message);
WINMMAPI MMRESULT WINAPI midiOutLongMsg(HMIDIOUT output, LPMIDIHDR header, UINT headerBytes);
WINMMAPI MMRESULT WINAPI midiOutReset(HMIDIOUT output);
WINMMAPI MMRESULT WINAPI midiOutClose(HMIDIOUT output);
WINMMAPI MMRESULT WINAPI midiOutPrepareHeader(HMIDIOUT output, LPMIDIHDR header, UINT headerBytes);
WINMMAPI MMRESULT WINAPI midiOutUnprepareHeader(HMIDIOUT output, LPMIDIHDR header, UINT headerBytes);

WINMMAPI UINT WINAPI midiInGetNumDevs();
WINMMAPI MMRESULT WINAPI midiInGetDevCapsW(UINT_PTR device, LPMIDIINCAPSW caps, UINT capsBytes);
WINMMAPI MMRESULT WINAPI midiInOpen(LPHMIDIIN input, UINT device, DWORD_PTR callback, DWORD_PTR instance, DWORD flags);
WINMMAPI MMRESULT WINAPI midiInClose(HMIDIIN input);
WINMMAPI MMRESULT WINAPI midiInStart(HMIDIIN input);
WINMMAPI MMRESULT WINAPI midiInStop(HMIDIIN input);
WINMMAPI MMRESULT WINAPI midiInReset(HMIDIIN input);
WINMMAPI MMRESULT WINAPI midiInPrepareHeader(HMIDIIN input, LPMIDIHDR header, UINT headerBytes);
WINMMAPI MMRESULT WINAPI midiInUnprepareHeader(HMIDIIN input, LPMIDIHDR header, UINT headerBytes);
WINMMAPI MMRESULT WINAPI midiInAddBuffer(HMIDIIN input, LPMIDIHDR header, UINT headerBytes);

WINMMAPI MMRESULT WINAPI midiStreamOpen(LPHMIDISTRM stream, LPUINT device, DWORD deviceCount, DWORD_PTR callback,
                                        DWORD_PTR instance, DWORD flags);
WINMMAPI MMRESULT WINAPI midiStreamClose(HMIDISTRM stream);
WINMMAPI MMRESULT WINAPI midiStreamOut(HMIDISTRM stream, LPMIDIHDR header, UINT headerBytes);
WINMMAPI MMRESULT WINAPI midiStreamRestart(HMIDISTRM stream);
WINMMAPI MMRESULT WINAPI midiStreamStop(HMIDISTRM stream);

WINMMAPI MMRESULT WINAPI timeBeginPeriod(UINT milliseconds);
WINMMAPI MMRESULT WINAPI timeEndPeriod(UINT milliseconds);
// One-shot function callbacks from 1 to 1,000,000 ms; 0 for anything else.
WINMMAPI MMRESULT WINAPI timeSetEvent(UINT delayMilliseconds, UINT resolution, LPTIMECALLBACK callback, DWORD_PTR user,
                                      UINT flags);
WINMMAPI MMRESULT WINAPI timeKillEvent(UINT timerId);

}  // extern "C"
