#include "platform/applescript/language/CommandForms.h"

#include <algorithm>
#include <iterator>

namespace qv::applescript {

namespace {

using Parameter = CommandForm::Parameter;
using Direct = CommandForm::Direct;
constexpr auto kFlag = CommandForm::Kind::flag;
constexpr auto kType = CommandForm::Kind::type;

constexpr Parameter kQuit[] = {{Term::saving}};
constexpr Parameter kOpen[] = {{Term::using_}, {Term::withProperties}};
constexpr Parameter kClose[] = {{Term::saving}, {Term::in}};
constexpr Parameter kSave[] = {{Term::in}, {Term::as, kType}};
constexpr Parameter kPrint[] = {{Term::withProperties}};
constexpr Parameter kDuplicate[] = {{Term::to}, {Term::replacing, kFlag}, {Term::withProperties}};
constexpr Parameter kMake[] = {
    {Term::newParameter, kType}, {Term::at}, {Term::to}, {Term::withProperties}};
constexpr Parameter kMove[] = {{Term::to}, {Term::replacing, kFlag}};
constexpr Parameter kShell[] = {{Term::as, kType},
                                {Term::administratorPrivileges, kFlag},
                                {Term::alteringLineEndings, kFlag},
                                {Term::userName},
                                {Term::password},
                                {Term::withPrompt}};
constexpr Parameter kRandom[] = {{Term::from}, {Term::to}, {Term::withSeed}};
constexpr Parameter kOffset[] = {{Term::of}, {Term::in}};
constexpr Parameter kRound[] = {{Term::rounding}};
constexpr Parameter kPathTo[] = {
    {Term::from}, {Term::as, kType}, {Term::folderCreation, kFlag}, {Term::in}};
constexpr Parameter kSay[] = {{Term::using_}, {Term::voice}};
constexpr Parameter kDialog[] = {
    {Term::defaultAnswer}, {Term::hiddenAnswer, kFlag}, {Term::buttons},  {Term::defaultButton},
    {Term::cancelButton},  {Term::withTitle},           {Term::withIcon}, {Term::givingUpAfter}};
constexpr Parameter kAlert[] = {{Term::message},       {Term::as},           {Term::buttons},
                                {Term::defaultButton}, {Term::cancelButton}, {Term::givingUpAfter}};
constexpr Parameter kNotification[] = {{Term::withTitle}, {Term::subtitle}, {Term::soundName}};
constexpr Parameter kFromList[] = {{Term::withTitle},
                                   {Term::withPrompt},
                                   {Term::defaultItems},
                                   {Term::okButtonName},
                                   {Term::cancelButtonName},
                                   {Term::multipleSelectionsAllowed, kFlag},
                                   {Term::emptySelectionAllowed, kFlag}};
constexpr Parameter kChooseFile[] = {{Term::withPrompt},
                                     {Term::ofType},
                                     {Term::defaultLocation},
                                     {Term::invisibles, kFlag},
                                     {Term::multipleSelectionsAllowed, kFlag}};
constexpr Parameter kInfoFor[] = {{Term::size, kFlag}};
constexpr Parameter kClipboard[] = {{Term::as, kType}};
constexpr Parameter kVolume[] = {
    {Term::outputVolume}, {Term::inputVolume}, {Term::alertVolume}, {Term::outputMuted, kFlag}};
constexpr Parameter kKeystroke[] = {{Term::using_}};

constexpr CommandForm kForms[] = {
    {Term::activate, Direct::optional, {}},
    {Term::launch, Direct::optional, {}},
    {Term::quit, Direct::optional, kQuit},
    {Term::open, Direct::optional, kOpen},
    {Term::reopen, Direct::optional, {}},
    {Term::run, Direct::optional, {}},
    {Term::close, Direct::optional, kClose},
    {Term::save, Direct::optional, kSave},
    {Term::print, Direct::optional, kPrint},
    {Term::count, Direct::reference, {}},
    {Term::deleteItem, Direct::required, {}},
    {Term::duplicate, Direct::required, kDuplicate},
    {Term::exists, Direct::reference, {}},
    {Term::make, Direct::none, kMake},
    {Term::move, Direct::required, kMove},
    {Term::get, Direct::required, {}},
    {Term::doShellScript, Direct::required, kShell},
    {Term::delay, Direct::optional, {}},
    {Term::currentDate, Direct::none, {}},
    {Term::randomNumber, Direct::optional, kRandom},
    {Term::offset, Direct::none, kOffset},
    {Term::round, Direct::required, kRound},
    {Term::pathTo, Direct::required, kPathTo},
    {Term::log, Direct::optional, {}},
    {Term::beep, Direct::optional, {}},
    {Term::say, Direct::required, kSay},
    {Term::displayDialog, Direct::required, kDialog},
    {Term::displayAlert, Direct::required, kAlert},
    {Term::displayNotification, Direct::optional, kNotification},
    {Term::chooseFromList, Direct::required, kFromList},
    {Term::chooseFile, Direct::none, kChooseFile},
    {Term::chooseFolder, Direct::none, kChooseFile},
    {Term::systemInfo, Direct::none, {}},
    {Term::systemAttribute, Direct::optional, {}},
    {Term::infoFor, Direct::required, kInfoFor},
    {Term::setVolume, Direct::optional, kVolume},
    {Term::timeToGMT, Direct::none, {}},
    {Term::asciiCharacter, Direct::required, {}},
    {Term::asciiNumber, Direct::required, {}},
    {Term::theClipboard, Direct::none, kClipboard},
    {Term::openLocation, Direct::required, {}},
    {Term::emptyTrash, Direct::optional, {}},
    {Term::eject, Direct::optional, {}},
    {Term::select, Direct::required, {}},
    {Term::reveal, Direct::required, {}},
    {Term::restart, Direct::optional, {}},
    {Term::shutDown, Direct::optional, {}},
    {Term::logOut, Direct::optional, {}},
    {Term::sleep, Direct::optional, {}},
    {Term::keystroke, Direct::required, kKeystroke},
};

} // namespace

bool CommandForm::has(Term label) const noexcept {
    return std::ranges::find(parameters, label, &Parameter::label) != parameters.end();
}

const CommandForm& formOf(Term command) noexcept {
    return *std::ranges::find(kForms, command, &CommandForm::command);
}

} // namespace qv::applescript
