; The installer of the shell extension for all users of a machine. Built with
;     makensis -DVERSION=3.0 -DFILES=FOLDER -DREGISTRATION=… -DOUTPUT=… [-DSIGN=COMMAND] setup.nsi
; Silent with /S, into another folder with /D=… as the last argument. The uninstaller takes /S too, and /KEEPTRACES.
; Exit code 0: done. 3010, as deployment tools know it: done, but a program still holds the module that was there
; before; its file goes at the next start of the system. 2: nothing was changed; the text says why.

Unicode true
Target amd64-unicode ; as Explorer and the module are: no view of the registry but the native one
ManifestDPIAware true
SetCompressor /SOLID lzma
SetDateSave off ; the same files make the same setup program, whenever they were written
!ifdef SIGN
  !uninstfinalize `${SIGN} "%1"` = 0
!endif
RequestExecutionLevel admin

!include MUI2.nsh
!include LogicLib.nsh
!include FileFunc.nsh
!include "${REGISTRATION}"

!define NAME "Sendora Shell Extension"
!define MAKER_FOLDER "$PROGRAMFILES64\Taleno Software"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\SendoraShellExtension"

Name "${NAME}"
OutFile "${OUTPUT}"
InstallDir "${MAKER_FOLDER}\${NAME}"
InstallDirRegKey HKLM "${UNINSTALL_KEY}" "InstallLocation" ; an update goes where the program is
AllowSkipFiles off
ShowInstDetails nevershow
ShowUninstDetails nevershow

VIProductVersion "${VERSION}.0.0"
VIAddVersionKey /LANG=1031 ProductName "Sendora File Transfer"
VIAddVersionKey /LANG=1031 CompanyName "Taleno Software"
VIAddVersionKey /LANG=1031 LegalCopyright "© Taleno Software"
VIAddVersionKey /LANG=1031 FileDescription "${NAME}"
VIAddVersionKey /LANG=1031 FileVersion "${VERSION}"

!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE German
!insertmacro MUI_LANGUAGE English

LangString HeldText ${LANG_GERMAN} "Der Explorer benutzt noch die bisherige Version. Sie wird beim nächsten Systemstart entfernt."
LangString HeldText ${LANG_ENGLISH} "Explorer still uses the previous version. It is removed at the next start of the system."
LangString BusyText ${LANG_GERMAN} "Die bisherige Version kann nicht ersetzt werden. Es wurde nichts geändert."
LangString BusyText ${LANG_ENGLISH} "The previous version cannot be replaced. Nothing was changed."

; Gets sndxdll.dll out of the way. A module that a process has loaded can be neither replaced nor deleted, but it
; can be renamed; the renamed file goes as soon as nobody holds it, at the latest at the next start of the system.
; Ends the program with exit code 2 when even that fails. For both programs, so as a macro of two functions.
!macro MoveAside PREFIX
Function ${PREFIX}MoveAside
  Delete "$INSTDIR\sndxdll.dll.*.old" ; what earlier runs left and nobody holds any more
  ClearErrors
  ${IfNot} ${FileExists} "$INSTDIR\sndxdll.dll"
    Return
  ${EndIf}
  Delete "$INSTDIR\sndxdll.dll"
  ${IfNot} ${Errors}
    Return
  ${EndIf}
  StrCpy $0 1
  ${While} ${FileExists} "$INSTDIR\sndxdll.dll.$0.old"
    IntOp $0 $0 + 1
  ${EndWhile}
  ClearErrors
  Rename "$INSTDIR\sndxdll.dll" "$INSTDIR\sndxdll.dll.$0.old"
  ${If} ${Errors}
    Delete "$INSTDIR\sndxdll.dll.new"
    MessageBox MB_OK|MB_ICONSTOP "$(BusyText)" /SD IDOK
    SetErrorLevel 2
    Quit
  ${EndIf}
  Delete /REBOOTOK "$INSTDIR\sndxdll.dll.$0.old"
FunctionEnd
!macroend
!insertmacro MoveAside ""
!insertmacro MoveAside "un."

; Tells running Explorer windows that classes have come or gone. They load icon overlays when they start.
!macro NotifyShell
  System::Call 'shell32::SHChangeNotify(i 0x08000000, i 0, p 0, p 0)'
!macroend

!macro ReportHeld
  ${If} ${RebootFlag}
    MessageBox MB_OK|MB_ICONINFORMATION "$(HeldText)" /SD IDOK
    SetErrorLevel 3010
    SetRebootFlag false ; said; no page that offers to restart now
  ${EndIf}
!macroend

Section
  SetRegView 64
  SetOutPath "$INSTDIR"
  ; All that can fail for lack of space or rights comes before the old module is touched; a file that cannot be
  ; written ends a silent run with exit code 2.
  File "/oname=sndxdll.dll.new" "${FILES}/sndxdll.dll"
  File "${FILES}/install.md"
  File "${FILES}/sndxdoctor.exe"
  WriteUninstaller "$INSTDIR\uninstall.exe"
  Call MoveAside
  Rename "$INSTDIR\sndxdll.dll.new" "$INSTDIR\sndxdll.dll"
  !insertmacro RegisterClasses
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${NAME}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "Taleno Software"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\sndxdll.dll,0"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoModify" 1
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoRepair" 1
  ${GetSize} "$INSTDIR" "/S=0K" $0 $1 $2
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "EstimatedSize" $0
  !insertmacro NotifyShell
  !insertmacro ReportHeld
SectionEnd

Section Uninstall
  SetRegView 64
  ; Registration first: from here on no program loads the module any more.
  !insertmacro UnregisterClasses
  !insertmacro NotifyShell
  SetOutPath "$TEMP" ; a working folder cannot be removed
  Call un.MoveAside
  Delete "$INSTDIR\install.md"
  Delete "$INSTDIR\sndxdoctor.exe"
  Delete "$INSTDIR\uninstall.exe"
  RMDir /REBOOTOK "$INSTDIR"
  ; The maker's folder, when nothing else is in it; a folder that the user chose is not ours to remove.
  ${GetParent} "$INSTDIR" $0
  ${If} $0 == "${MAKER_FOLDER}"
    ${If} ${RebootFlag}
      RMDir /REBOOTOK "$0"
    ${Else}
      RMDir "$0"
    ${EndIf}
  ${EndIf}
  DeleteRegKey HKLM "${UNINSTALL_KEY}"
  ; The traces of the user who removes the program; those of programs that still hold the module stay, and other
  ; users' are not ours to touch.
  ${GetParameters} $0
  ClearErrors
  ${GetOptions} $0 "/KEEPTRACES" $1
  ${If} ${Errors}
    SetShellVarContext current
    Delete "$APPDATA\tracedll_Sendora*.txt"
  ${EndIf}
  !insertmacro ReportHeld
SectionEnd
