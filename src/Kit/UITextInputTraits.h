#pragma once

namespace tarvik {

enum class UIKeyboardType {
    Default,
    ASCIICapable,
    NumbersAndPunctuation,
    URL,
    NumberPad,
    PhonePad,
    NamePhonePad,
    EmailAddress,
    DecimalPad,
    Twitter,
    WebSearch,
};

enum class UIReturnKeyType {
    Default,
    Go,
    Google,
    Join,
    Next,
    Route,
    Search,
    Send,
    Yahoo,
    Done,
    EmergencyCall,
    Continue,
};

enum class UITextAutocorrectionType { Default, No, Yes };
enum class UITextAutocapitalizationType { None, Words, Sentences, AllCharacters };

// What a text control asks of an on-screen keyboard. The toolkit keeps them for a presenter
// that has such a keyboard; a physical keyboard ignores them.
struct UITextInputTraits {
    UIKeyboardType keyboardType = UIKeyboardType::Default;
    UIReturnKeyType returnKeyType = UIReturnKeyType::Default;
    UITextAutocorrectionType autocorrectionType = UITextAutocorrectionType::Default;
    UITextAutocapitalizationType autocapitalizationType = UITextAutocapitalizationType::Sentences;
};

}  // namespace tarvik
