@echo off
rem Removes Zorvalis as install.cmd has installed it; with --purge also its records, settings and registry values. Run it as
rem administrator. It ends with 0, or with a Windows error number; without --purge everything is then as it was before.
rem C:\Windows\Logs\Zorvalis-setup.log has what was done.
setlocal EnableExtensions DisableDelayedExpansion
set "errorlevel="
set "folder=%ProgramW6432%\Zorv\Zorvalis"
set "setup=%~dp0zorvsetup.exe"
if not "%~2"=="" echo remove.cmd takes --purge or nothing. & exit /b 87
if not "%~1"=="" if not "%~1"=="--purge" echo remove.cmd takes --purge or nothing. & exit /b 87
"%SystemRoot%\System32\reg.exe" query HKLM\SOFTWARE\Classes\Installer\UpgradeCodes\05A0D1C6E0B725A4D9E7A0D4062C0A10 >nul 2>nul
if %errorlevel%==0 echo The MSI package of Zorvalis is installed: remove that. & exit /b 1638

if exist "%folder%.old\" if exist "%folder%\" rd /s /q "%folder%.old"
if exist "%folder%.old\" if exist "%folder%\" echo A program uses %folder%.old: end it, or try again as administrator. & exit /b 32
"%setup%" stop
if not %errorlevel%==0 set "code=%errorlevel%" & goto restart
if not exist "%folder%\" goto remove
move "%folder%" "%folder%.old" >nul
if not %errorlevel%==0 set "code=32" & goto restart
:remove
"%setup%" remove
if not %errorlevel%==0 set "code=%errorlevel%" & goto restore
if exist "%folder%.old\" rd /s /q "%folder%.old"
if exist "%folder%.old\" echo %folder%.old is in use; delete it later.
rd "%ProgramW6432%\Zorv" 2>nul
if not "%~1"=="" "%setup%" remove --purge
if "%~1"=="" "%setup%" commit
exit /b %errorlevel%

:restore
if exist "%folder%.old\" move "%folder%.old" "%folder%" >nul
"%setup%" undo
:restart
"%setup%" resume
echo Zorvalis was not removed; the error is %code%.
exit /b %code%
