@echo off
rem Installs Zorvalis from this folder, or puts it in the place of another version, for those who do not use the MSI. Run it
rem as administrator. It ends with 0, or with a Windows error number, and then everything is as it was before.
rem C:\Windows\Logs\Zorvalis-setup.log has what was done.
setlocal EnableExtensions DisableDelayedExpansion
set "errorlevel="
set "folder=%ProgramW6432%\Zorv\Zorvalis"
set "setup=%~dp0zorvsetup.exe"
if not defined ProgramW6432 echo Zorvalis needs 64-bit Windows 10 version 1809 or later. & exit /b 1150
"%SystemRoot%\System32\reg.exe" query HKLM\SOFTWARE\Classes\Installer\UpgradeCodes\05A0D1C6E0B725A4D9E7A0D4062C0A10 >nul 2>nul
if %errorlevel%==0 echo The MSI package of Zorvalis is installed: upgrade it by a newer one, or remove it first. & exit /b 1638
"%setup%" check
if not %errorlevel%==0 exit /b %errorlevel%

rem The files are laid beside the folder first, so that all or none of them change. What a run left that was cut short:
if exist "%folder%.old\" if exist "%folder%\" rd /s /q "%folder%.old"
if exist "%folder%.old\" if exist "%folder%\" echo A program uses %folder%.old: end it, or try again as administrator. & exit /b 32
if exist "%folder%.old\" move "%folder%.old" "%folder%" >nul
if exist "%folder%.new\" rd /s /q "%folder%.new"
md "%folder%.new"
set "code=0"
if not exist "%folder%.new\" set "code=5" & goto unstage
for %%f in (ZorvalisWinService.exe zorvctl.exe default.json LICENSE THIRD-PARTY-NOTICES.md administrator.md) do call :bring %%f
if not %code%==0 goto unstage

"%setup%" stop
if not %errorlevel%==0 set "code=%errorlevel%" & goto restart
if not exist "%folder%\" goto place
move "%folder%" "%folder%.old" >nul
if not %errorlevel%==0 set "code=32" & goto restart
:place
move "%folder%.new" "%folder%" >nul
if not %errorlevel%==0 set "code=5" & goto restore
"%setup%" configure "%folder%"
if not %errorlevel%==0 set "code=%errorlevel%" & goto unconfigure
"%setup%" start
if not %errorlevel%==0 set "code=%errorlevel%" & goto unconfigure
"%setup%" commit
if exist "%folder%.old\" rd /s /q "%folder%.old"
if exist "%folder%.old\" echo %folder%.old is in use; delete it later.
echo Zorvalis is installed in %folder%.
exit /b 0

:bring
if not %code%==0 exit /b 0
copy /b "%~dp0%1" "%folder%.new\%1" >nul
if not %errorlevel%==0 echo %1 cannot be copied to %folder%.new. & set "code=29"
exit /b 0

:unconfigure
"%setup%" undo
move "%folder%" "%folder%.new" >nul
:restore
if exist "%folder%.old\" if not exist "%folder%\" move "%folder%.old" "%folder%" >nul
if exist "%folder%.old\" echo %folder% is in use: it has the new files, and %folder%.old those of before.
:restart
"%setup%" resume
:unstage
if exist "%folder%.new\" rd /s /q "%folder%.new"
rd "%ProgramW6432%\Zorv" 2>nul
echo Zorvalis was not installed; the error is %code%.
exit /b %code%
